#pragma once

#include <cstdint>
#include <vector>

namespace velorine::test {

/// First value of every ramp: loud, so that nothing of it passes for leading silence.
inline constexpr std::int32_t rampStart = 1 << 30;

/// Frames whose samples all are `first`, `first + 1`, ...: each frame of a programme is known by
/// its value.
inline std::vector<std::int32_t> ramp(int frames, int channels, std::int32_t first = rampStart) {
    std::vector<std::int32_t> samples;
    samples.reserve(static_cast<std::size_t>(frames) * static_cast<std::size_t>(channels));
    for (int i = 0; i < frames; ++i)
        samples.insert(samples.end(), static_cast<std::size_t>(channels), first + i);
    return samples;
}

/// Every second value: the first channel of stereo samples.
template <typename Sample>
std::vector<Sample> firstChannel(const std::vector<Sample>& samples, int channels) {
    std::vector<Sample> picked;
    for (std::size_t i = 0; i < samples.size(); i += static_cast<std::size_t>(channels))
        picked.push_back(samples[i]);
    return picked;
}

} // namespace velorine::test
