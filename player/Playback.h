#pragma once

#include "player/AudioFile.h"
#include "player/Keys.h"
#include "player/ModuleHost.h"
#include "player/StatusLine.h"

#include <chrono>
#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace velorine {

class Console;

/// Plays a list of files through the module, as a host does: it writes what the module permits,
/// follows a track's natural end with the next one, and obeys keys. One thread.
class Playback {
public:
    Playback(ModuleHost& moduleHost, Console& messages, const std::vector<std::string>& playlist)
        : host(moduleHost), console(messages), files(playlist) {}

    /// Begins with the first file that can be played. @return false when none can
    bool begin();

    /// Decodes and writes as much as the module permits at once.
    /// @return whether it permitted anything
    bool feed();

    void obey(Key key);

    /// The last file has been heard to its end, or a person has ended it.
    bool isOver();

    /// Ends the track that plays, if there is one.
    void finish();

    PlayState state() const;

    std::size_t failures() const noexcept { return failed.size(); } ///< files with a problem
    bool hasPlayed() const noexcept { return played; }

private:
    bool openNext(std::size_t from);
    bool openPrevious(std::size_t from);
    bool open(std::size_t which);
    void startTrack();
    void refill();
    void goTo(bool opened);
    void seekBy(int ms);
    void turnVolume(int steps);
    void report(std::size_t which, const std::string& text);
    std::int64_t msOf(std::int64_t frame) const;

    ModuleHost& host;
    Console& console;
    const std::vector<std::string>& files;

    std::optional<AudioFile> file;      ///< that is being decoded
    std::size_t index = 0;              ///< of `file` in the list
    std::optional<AudioFile> candidate; ///< opened, not yet playing
    std::size_t candidateIndex = 0;
    std::set<std::size_t> failed;

    std::vector<std::byte> block; ///< decoded, of which `taken` bytes were written
    std::size_t filled = 0;
    std::size_t taken = 0;

    bool ringsOut = false; ///< the last file is decoded and its end isn't heard yet
    bool over = false;
    bool paused = false;
    bool played = false;
    int volume = 255;
};

} // namespace velorine
