#include "player/StatusLine.h"

#include <gtest/gtest.h>

namespace velorine {
namespace {

PlayState song() {
    PlayState play;
    play.state = "playing";
    play.positionMs = 12'999;
    play.lengthMs = 225'000;
    play.queueMs = 812;
    play.hostFormat = {44100, 2, 16};
    play.title = "song.flac";
    return play;
}

TEST(StatusLine, TellsPlaceQueueAndFormats) {
    EXPECT_EQ(statusLine(song(), 200, false),
              "playing  0:12 / 3:45  queue 812 ms  44100 Hz 16-bit stereo  song.flac");
}

TEST(StatusLine, TellsWhereItPlays) {
    PlayState play = song();
    play.outputFormat = SampleFormat{sampleType::int24, 2, 44100, fullWidth};
    play.device = "Front speakers";
    EXPECT_EQ(
        statusLine(play, 200, false),
        "playing  0:12 / 3:45  queue 812 ms  44100 Hz 16-bit stereo -> 24-bit (Front speakers)"
        "  song.flac");
    play.outputFormat = SampleFormat{sampleType::float32, 1, 48000, fullWidth};
    EXPECT_NE(statusLine(play, 200, false).find("stereo -> 48000 Hz float mono ("),
              std::string::npos);
}

TEST(StatusLine, TellsTrackAndVolumeOnlyWhereTheyMatter) {
    PlayState play = song();
    play.track = 1;
    play.tracks = 3;
    play.volume = 128;
    EXPECT_EQ(
        statusLine(play, 200, false),
        "playing  0:12 / 3:45  queue 812 ms  44100 Hz 16-bit stereo  vol 50 %  2/3 song.flac");
}

TEST(StatusLine, UnknownLengthIsLeftOut) {
    PlayState play = song();
    play.lengthMs.reset();
    EXPECT_TRUE(statusLine(play, 200, false).starts_with("playing  0:12  queue"));
}

TEST(StatusLine, LeavesTheLastColumnFree) {
    for (const int columns : {2, 8, 20, 40}) {
        const std::string whole = statusLine(song(), 200, false);
        EXPECT_EQ(statusLine(song(), columns, false),
                  whole.substr(0, static_cast<std::size_t>(columns - 1)));
    }
}

TEST(StatusLine, ColourTakesNoColumns) {
    const std::string plain = statusLine(song(), 30, false);
    EXPECT_EQ(statusLine(song(), 30, true),
              "\033[1mplaying\033[0m" + plain.substr(std::string{"playing"}.size()));
}

TEST(StatusLine, NameCannotControlTheTerminal) {
    PlayState play = song();
    play.title = "a\033[2Jb\nc";
    EXPECT_TRUE(statusLine(play, 200, false).ends_with("  a?[2Jb?c"));
}

TEST(ProgressLine, FillsWithTheShare) {
    const std::string empty(30, '.');
    const std::string full(30, '#');
    EXPECT_EQ(progressLine(0, 0, "out.wav", 80), "[" + empty + "]   0 %  out.wav");
    EXPECT_EQ(progressLine(0.5, 143.4, "out.wav", 80),
              "[" + full.substr(15) + empty.substr(15) + "]  50 %  143 x real time  out.wav");
    EXPECT_EQ(progressLine(1, 0, "out.wav", 80), "[" + full + "] 100 %  out.wav");
    EXPECT_EQ(progressLine(7, 0, "out.wav", 10), "[########");
}

} // namespace
} // namespace velorine
