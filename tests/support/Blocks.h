#pragma once

#include "foundation/FxBlock.h"

#include <cstdint>
#include <cstring>
#include <vector>

namespace velorine::test {

/// A format as the tests write it; all bits valid.
inline SampleFormat formatOf(int type, int channels, int rate) {
    return {type, channels, rate, fullWidth};
}

/// A block that holds `samples`, interleaved, for the time from `timeStart` to `timeEnd`. Positions
/// and source span are the ring's and the caller's.
template <typename Sample>
FxBlock blockOf(FxArena& arena, const SampleFormat& format, const std::vector<Sample>& samples,
                FxTime timeStart, FxTime timeEnd) {
    FxBlock block;
    block.format = format;
    if (!samples.empty())
        std::memcpy(
            block.allocate(arena, format, static_cast<int>(samples.size()) / format.channels),
            samples.data(), samples.size() * sizeof(Sample));
    block.timeStart = timeStart;
    block.timeEnd = timeEnd;
    return block;
}

/// A block without frames.
inline FxBlock markerOf(const SampleFormat& format, FxTime time) {
    FxBlock block;
    block.format = format;
    block.timeStart = block.timeEnd = time;
    return block;
}

/// The samples of `block`, interleaved.
template <typename Sample>
std::vector<Sample> samplesOf(const FxBlock& block) {
    std::vector<Sample> samples(static_cast<std::size_t>(block.frames()) *
                                static_cast<std::size_t>(block.format.channels));
    if (!samples.empty())
        std::memcpy(samples.data(), block.data(), samples.size() * sizeof(Sample));
    return samples;
}

/// `count` samples `first`, `first + 1`, ...
template <typename Sample>
std::vector<Sample> counting(int count, int first) {
    std::vector<Sample> samples;
    samples.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        samples.push_back(static_cast<Sample>(first + i));
    return samples;
}

/// Mono 16-bit frames `first`, `first + 1`, ...
inline FxBlock countingBlock(FxArena& arena, int frames, int first, FxTime timeStart,
                             FxTime timeEnd, int rate = 48000) {
    return blockOf(arena, formatOf(sampleType::int16, 1, rate),
                   counting<std::int16_t>(frames, first), timeStart, timeEnd);
}

} // namespace velorine::test
