#include "output/TrackNames.h"

#include "output/RecordingsFolder.h"

#include <gtest/gtest.h>

namespace velorine {
namespace {

TEST(TrackNames, TakesTheNameWithoutFoldersAndExtension) {
    const struct {
        const char *playlistFile, *name;
    } cases[] = {
        {"/music/a/song.flac", "song_velorine.wav"},
        {"C:\\Music\\Song One.mp3", "Song One_velorine.wav"},
        {"C:\\Music/mixed\\x.ogg", "x_velorine.wav"},
        {"\\\\server\\share/y.ogg", "y_velorine.wav"},
        {"song", "song_velorine.wav"},
        {"v1.2 final.tar.gz", "v1.2 final.tar_velorine.wav"},
        {"/dir.with.dots/plain", "plain_velorine.wav"},
        {"http://radio.example:8000/live.mp3", "live_velorine.wav"},
        {"ends.", "ends_velorine.wav"},
        {".ogg", "_velorine.wav"},
        {"http://radio.example/", "_velorine.wav"},
        {"", "_velorine.wav"},
    };
    for (const auto& [playlistFile, name] : cases)
        EXPECT_EQ(trackRecordingPath(playlistFile), recordingsFolder() + name) << playlistFile;
}

} // namespace
} // namespace velorine
