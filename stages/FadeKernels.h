#pragma once

#include <cstdint>

namespace velorine {

// The loops of a fade, in several forms for what the processor can do; all of them yield the same
// bits. Samples may lie at any address.
//
// Included by files that are built for wider instructions: nothing inline belongs here.

/// A run of a fade between two sides, either of which may be missing (null: silence).
struct FadeRun {
    const void* oldSide;
    const void* newSide;
    void* out;   ///< may be one of the sides
    double t;    ///< place of the next frame in the fade, above 0 and below 1
    double step; ///< from frame to frame, added up
    int frames;
    int channels; ///< interleaved
    double scale; ///< linear gain on the result
};

/// Mixes as many of the first frames as this form can, and carries `t` on by as many.
/// @return how many
using MixRun = int (*)(FadeRun& run);

struct FadeKernels {
    MixRun equalPower[3]; ///< of 16-bit integers, 32-bit integers, floats
    MixRun linear[3];     ///< the same
    const char* name;
};

extern const FadeKernels plainFadeKernels; ///< the formulas as they are; mix everything
extern const FadeKernels avx2FadeKernels;

/// The best set for a processor with these `cpuFeature` bits.
const FadeKernels& fadeKernels(std::uint32_t features);

} // namespace velorine
