#pragma once

#include "stages/convert/ConversionPlan.h"
#include "stages/convert/ConvertKernels.h"

#include <array>
#include <cstdint>

namespace velorine {

/// The filter that the rounding errors go through, the oldest tap first. One for all sample rates
/// and resolutions: it moves the noise from where the ear is most sensitive up to the top octave.
struct ShaperTaps {
    static constexpr int taps = 30;

    std::array<float, taps> coefFloat;
    std::array<std::int16_t, taps + 4> coefInt; ///< 2^-12; the last 4 are 0
};

/// The newest 30 coefficients of a 39-tap prototype under the falling half of a Hann window.
ShaperTaps designShaperTaps();

/// The errors of one channel, in a ring.
struct ShaperChannel {
    static constexpr int ringSize = 256;
    static constexpr int ringMask = ringSize - 1;

    std::array<std::int16_t, ringSize> history{}; ///< 2^-14 LSB
    int ringPos = 0;                              ///< oldest error under the filter; grows, wraps
};

/// A run of samples on their way through the shaper, the channels interleaved.
struct ShapedRun {
    const double* x;      ///< valid LSBs
    const double* dither; ///< the same, one for each sample
    std::int32_t* to;
    int frames;
    int channels;
};

/// Rounding with error feedback, for up to 16 channels.
///
/// Never reset: the errors of one run shape the next, whatever came between. One thread at a time.
/// S. P. Lipshitz, J. Vanderkooy, R. A. Wannamaker, "Minimally audible noise shaping", 1991.
class NoiseShaper {
public:
    NoiseShaper();

    /// Whether the filter runs; without it errors are only noted.
    bool shaperActive = true;

    void shape(const ConvertKernels& kernels, const ShapedRun& run, const WordLimits& limits);

private:
    void shapeEach(const ShapedRun& run, std::size_t first, const WordLimits& limits);
    void shapeTwo(ShapePair kernel, ShapedRun run, std::size_t first, const WordLimits& limits);
    void shapeApart(ShapePair kernel, const ShapedRun& run, const WordLimits& limits);
    void load(ShapedPair& pair, std::size_t first);
    void store(const ShapedPair& pair, const ShapedRun& done, std::size_t first);

    ShaperTaps taps;
    ShaperTables tables;
    std::array<ShaperChannel, maxShapedChannels> channels{};
    std::array<float, maxShapedChannels> lastError{}; ///< of the sample before, LSB, not limited
};

} // namespace velorine
