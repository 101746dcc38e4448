#pragma once

#include <algorithm>
#include <cstdint>

namespace velorine {

/// Which frames of a delivered stream are recorded: a render leaves out what the chain puts before
/// and behind the track.
struct RecordingWindow {
    std::int64_t skipFrames = 0;  ///< first frames that are not recorded, 0 or above
    std::int64_t frameCount = -1; ///< frames that are recorded behind these; -1: all

    /// How many of the stream's first `frames` frames are recorded.
    constexpr std::int64_t inside(std::int64_t frames) const noexcept {
        const std::int64_t behindSkip = std::max<std::int64_t>(frames - skipFrames, 0);
        return frameCount < 0 ? behindSkip : std::min(behindSkip, frameCount);
    }
};

} // namespace velorine
