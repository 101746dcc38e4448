#pragma once

#include <algorithm>
#include <cstdint>

namespace velorine {

/// Part of the device's buffer, in frames, that audio is never written into: the silence that pads
/// the queue lives there.
constexpr std::int64_t guardFrames(int rate) noexcept {
    return std::max<std::int64_t>(std::int64_t{rate} * 24576 / 44100, 2560);
}

/// The most that one write hands over: about 70 ms.
constexpr std::int64_t chunkFrames(int rate) noexcept {
    return std::int64_t{rate} * 3072 / 44100;
}

/// Milliseconds until `frames` more have been played, at most 50; below 2 it isn't worth a wait.
constexpr int pacingWaitMs(std::int64_t frames, int rate) noexcept {
    return static_cast<int>(std::min<std::int64_t>((frames * 1000 - 1 + rate) / rate + 1, 50));
}

} // namespace velorine
