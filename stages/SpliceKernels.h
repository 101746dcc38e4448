#pragma once

#include <cstdint>

namespace velorine {

// The splice's loops, in several forms for what the processor can do; all of them yield the same
// bits. Samples may lie at any address.
//
// Included by files that are built for wider instructions: nothing inline belongs here.

/// One grain: two pieces of the stream that are faded into each other.
struct SpliceRun {
    const std::int16_t* outgoing;
    const std::int16_t* incoming;
    const std::uint32_t* weights; ///< `SpliceFade::weights`, one a frame
    int frames;
    int channels;       ///< 1 or 2
    std::int64_t level; ///< 256 is unity; within 2^40
    std::int16_t* out;  ///< clamped
};

using MixGrain = void (*)(const SpliceRun& run);

struct SpliceKernels {
    MixGrain mixGrain;
    const char* name;
};

extern const SpliceKernels plainSpliceKernels; ///< the formulas as they are
extern const SpliceKernels avx2SpliceKernels;

/// The best set for a processor with these `cpuFeature` bits.
const SpliceKernels& spliceKernels(std::uint32_t features);

/// `to = from` times `level` / 256, rounded and clamped.
void scaleSamples(const std::int16_t* from, int count, std::int64_t level, std::int16_t* to);

} // namespace velorine
