#pragma once

#include "foundation/FxPos.h"

#include <cstdint>

namespace velorine {

class Mt19937;
class ResampleFilter;

// Included by files that are built for wider instructions: nothing inline belongs here.

/// One run of the resampler over a window of input.
struct ResampleRun {
    const ResampleFilter* filter;
    const std::int32_t*
        window; ///< stereo frames; the first output frame's taps begin at `firstTap`
    int windowFrames;
    int firstTap;
    FxPos position; ///< of the first output frame; the window's frames count from its whole part
    FxPos step;
    int frames;       ///< of output
    std::int32_t* to; ///< stereo
    void* scratch;    ///< room for the window and 16 frames as doubles, 64-byte aligned
    double gain;      ///< so that full scale stays below the clamp
    int shift;        ///< unused low bits of the output; kernels without dither know none
    Mt19937* dither;
};

using ResampleLoop = void (*)(const ResampleRun& run);

/// A loop over the four sums of a polynomial's terms, or an equal form, and what it needs.
struct ResampleKernel {
    ResampleLoop run;
    int number;             ///< place in the order of choice, 1 to 4
    std::uint32_t features; ///< `cpuFeature` bits
    bool dithers;
    const char* name;
};

extern const ResampleKernel singleAvx2Kernel; ///< 1
extern const ResampleKernel singleSse2Kernel; ///< 1
extern const ResampleKernel doubleAvx2Kernel; ///< 2
extern const ResampleKernel doubleSse2Kernel; ///< 2
extern const ResampleKernel ditherKernel;     ///< 3: in double, one term's sum after the other
extern const ResampleKernel pairsKernel;      ///< 4: in single, left and right as a pair

/// The kernel for a processor with these `cpuFeature` bits.
///
/// @param needsDouble  as the filter says
/// @param reducedBits  the output shall have fewer bits than 32
const ResampleKernel& resampleKernel(std::uint32_t features, bool needsDouble, bool reducedBits);

} // namespace velorine
