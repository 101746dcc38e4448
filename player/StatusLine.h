#pragma once

#include "foundation/SampleFormat.h"
#include "player/HostFormat.h"

#include <cstdint>
#include <optional>
#include <string>

namespace velorine {

/// What the status line tells of a playing track.
struct PlayState {
    std::string state; ///< "playing", "paused"
    std::int64_t positionMs = 0;
    std::optional<std::int64_t> lengthMs; ///< nothing when the file doesn't say
    int queueMs = 0;
    HostFormat hostFormat;
    std::optional<SampleFormat> outputFormat; ///< nothing before anything was played
    std::string device;                       ///< empty: none yet
    std::string title;
    std::size_t track = 0; ///< from 0
    std::size_t tracks = 1;
    int volume = 255; ///< 0 to 255
};

/// "playing  0:12 / 3:45  queue 812 ms  44100 Hz 16-bit stereo -> 16-bit (null)  2/3 song.flac",
/// cut to `columns`.
///
/// @param colour  the state in bold
std::string statusLine(const PlayState& play, int columns, bool colour);

/// "16-bit", "float": a sample type as the device or the file takes it.
std::string sampleText(int type);

/// A bar that fills with `share`, 0 to 1, with percent, speed (times real time; 0 leaves it out)
/// and name, cut to `columns`.
std::string progressLine(double share, double speed, const std::string& name, int columns);

} // namespace velorine
