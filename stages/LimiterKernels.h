#pragma once

#include <cstdint>

namespace velorine {

// The limiter's loops, in several forms for what the processor can do; all of them yield the same
// bits. Samples may lie at any address.
//
// Included by files that are built for wider instructions: nothing inline belongs here.

/// Frames by which the limiter looks ahead.
inline constexpr int limiterLook = 32;

/// What a run of the gain starts from and where it ends.
struct LimiterRun {
    const double* required; ///< `frames + limiterLook` values, 0 to 1
    int frames;
    double rise;   ///< growth of the gain from frame to frame while it recovers, 1 or above
    double gain;   ///< of the frame before; becomes that of the last one
    double* gains; ///< `frames` values, 0.01 to 1
};

struct LimiterKernels {
    /// The gain that brings each stereo frame to full scale: 1 over its peak, at most 1.
    void (*require)(const float* pairs, int frames, double* required);

    /// Follows the requirements along the steepest line that leads down to one of them.
    void (*follow)(LimiterRun& run);

    /// `to = pairs * gains`, both channels.
    void (*apply)(const float* pairs, const double* gains, int frames, float* to);

    const char* name;
};

extern const LimiterKernels plainLimiterKernels; ///< the formulas as they are
extern const LimiterKernels avx2LimiterKernels;

/// The best set for a processor with these `cpuFeature` bits.
const LimiterKernels& limiterKernels(std::uint32_t features);

} // namespace velorine
