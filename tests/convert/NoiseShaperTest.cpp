#include "stages/convert/NoiseShaper.h"
#include "foundation/Mt19937.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdlib>
#include <numbers>
#include <vector>

namespace velorine {
namespace {

constexpr std::array<int, 30> knownTaps = {
    0,   0,    0,   -4,   1,    -3,   -18,   22,   -44, 4,     40,    -165,   196,   -173,   -97,
    457, -908, 813, -260, -976, 2474, -3579, 2358, 472, -5040, 10836, -15449, 15397, -13617, 9807};

/// Gain of the rounding error at a part of the sample rate: 1 less the filter.
double noiseGainDb(double frequency) {
    const ShaperTaps taps = designShaperTaps();
    std::complex<double> gain = 1.0;
    for (int back = 1; back <= ShaperTaps::taps; ++back) {
        const double tap = taps.coefInt[static_cast<std::size_t>(ShaperTaps::taps - back)] / 4096.0;
        gain -= tap * std::polar(1.0, -2.0 * std::numbers::pi * frequency * back);
    }
    return 20.0 * std::log10(std::abs(gain));
}

TEST(NoiseShaper, KeepsThirtyWindowedTaps) {
    const ShaperTaps taps = designShaperTaps();
    int magnitudes = 0;
    for (std::size_t i = 0; i < knownTaps.size(); ++i) {
        EXPECT_EQ(taps.coefInt[i], knownTaps[i]) << "tap " << i;
        magnitudes += std::abs(taps.coefInt[i]);
    }
    for (std::size_t i = knownTaps.size(); i < taps.coefInt.size(); ++i)
        EXPECT_EQ(taps.coefInt[i], 0);
    EXPECT_EQ(magnitudes, 83210);
    EXPECT_EQ(taps.coefFloat.front(), 0.0f);
    EXPECT_NEAR(taps.coefFloat.back(), 2.4007559f * 0.99726f, 1e-4f);
}

TEST(NoiseShaper, MovesNoiseToTheTopOctave) {
    EXPECT_NEAR(noiseGainDb(0.0), -8.4, 0.15);
    EXPECT_NEAR(noiseGainDb(0.05), -19.9, 0.15);
    EXPECT_NEAR(noiseGainDb(0.09), -25.2, 0.15);
    EXPECT_NEAR(noiseGainDb(0.2), -1.1, 0.15);
    EXPECT_NEAR(noiseGainDb(0.3), -5.6, 0.15);
    EXPECT_NEAR(noiseGainDb(0.4), 21.8, 0.15);
    EXPECT_NEAR(noiseGainDb(0.5), 24.3, 0.15);

    double power = 1.0; // the taps are the response to a single error
    for (const int tap : knownTaps)
        power += tap / 4096.0 * (tap / 4096.0);
    EXPECT_NEAR(10.0 * std::log10(power), 17.5, 0.15);
}

TEST(NoiseShaper, ErrorsLeaveThroughTheFilter) {
    // Dithered silence: what comes out is the rounding error, filtered. Undo the filter, and
    // what is left must be as white and as small as triangular dither and a rounding make it.
    constexpr int frames = 1 << 15;
    constexpr WordLimits limits{-32768.0, 32767.0, 32767, 32767, 0};
    std::vector<double> x(frames, 0.25);
    std::vector<double> dither(frames);
    std::vector<std::int32_t> result(frames);
    Mt19937 generator{7};
    generator.triangular(dither);
    NoiseShaper shaper;
    shaper.shape(plainConvertKernels, {x.data(), dither.data(), result.data(), frames, 1}, limits);

    std::vector<double> errors;
    double power = 0.0;
    double neighbours = 0.0;
    for (int i = 0; i < frames; ++i) {
        double error = 0.25 - result[static_cast<std::size_t>(i)];
        for (int back = 1; back <= std::min(30, i); ++back)
            error += knownTaps[static_cast<std::size_t>(30 - back)] / 4096.0 *
                     errors[static_cast<std::size_t>(i - back)];
        ASSERT_LT(std::abs(error), 1.51) << "frame " << i;
        if (i > 0) neighbours += error * errors.back();
        power += error * error;
        errors.push_back(error);
    }
    EXPECT_NEAR(power / frames, 0.25, 0.01); // 2/12 of the dither, 1/12 of the rounding
    EXPECT_NEAR(neighbours / power, 0.0, 0.03);
}

TEST(NoiseShaper, FirstSampleHasNoFeedbackTheSecondHas) {
    constexpr WordLimits limits{-32768.0, 32767.0, 32767, 32767, 0};
    const std::array<double, 3> x = {0.25, 0.25, 0.25};
    const std::array<double, 3> dither{};
    std::array<std::int32_t, 3> result{};
    NoiseShaper shaper;
    shaper.shape(plainConvertKernels, {x.data(), dither.data(), result.data(), 3, 1}, limits);
    // 0.25 rounds to 0, which leaves 0.25; 0.25 + 0.25 * 9807 / 4096 = 0.8486 rounds to 1, which
    // leaves -0.1514; 0.25 - 0.1514 * 9807 / 4096 - 0.25 * 13617 / 4096 = -0.9437 rounds to -1.
    EXPECT_EQ(result[0], 0);
    EXPECT_EQ(result[1], 1);
    EXPECT_EQ(result[2], -1);
}

TEST(NoiseShaper, ClippedSamplesDontFeedTheFilter) {
    constexpr WordLimits limits{-128.0, 127.0, 127, 127, 0};
    const std::array<double, 2> x = {300.25, 0.25};
    const std::array<double, 2> dither{};
    std::array<std::int32_t, 2> result{};
    NoiseShaper shaper;
    shaper.shape(plainConvertKernels, {x.data(), dither.data(), result.data(), 2, 1}, limits);
    EXPECT_EQ(result[0], 127);
    EXPECT_EQ(result[1], 1); // 0.8486: the error was 0.25, not 173.25
}

} // namespace
} // namespace velorine
