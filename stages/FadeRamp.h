#pragma once

#include <cstdint>

namespace velorine {

struct FadeKernels;

/// A stretch of a fade between two sides, either of which may be missing (null: silence).
struct FadeRamp {
    int type = 5;     ///< sample format id: 1, 4 or 5
    int channels = 2; ///< interleaved
    int frames = 0;
    const void* oldSide = nullptr;
    const void* newSide = nullptr;
    void* out = nullptr;     ///< may be one of the sides
    std::int64_t first = 0;  ///< place of the first frame in the fade
    std::int64_t length = 1; ///< frames of the whole fade
    bool linear = false;     ///< else equal power
    double scale = 1.0;      ///< linear gain on the result
};

/// Mixes the two sides: `new * sqrt(t) + old * sqrt(1 - t)`, or `(new - old) * t + old`, with `t`
/// from 0 to 1 over the fade. Integers are rounded to nearest and clamped to their range.
void mixRamp(const FadeRamp& ramp);

/// The same with a set of kernels of the caller's choice: all of them yield the same bits.
void mixRamp(const FadeRamp& ramp, const FadeKernels& kernels);

} // namespace velorine
