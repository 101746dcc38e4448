#include "kestrix/BandFilters.h"
#include "kestrix/CurveRamp.h"
#include "tests/kestrix/KestrixModel.h"
#include "tests/kestrix/KestrixRig.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <vector>

namespace velorine::test {
namespace {

using Spectrum = std::vector<std::complex<double>>;

struct Design {
    Design(const KestrixParameters& parameters, int rate)
        : sizes(computeFrameSizes(static_cast<float>(rate))) {
        filters.rebuild(parameters, static_cast<float>(rate), sizes);
    }

    /// Sum of all bands at a bin, as a factor of the audio.
    std::complex<double> sumAt(int k) const {
        std::complex<double> sum;
        for (int b = 0; b < kestrixBands; ++b)
            sum += std::complex<double>(filters.spectrum(b)[k]);
        return sum * static_cast<double>(sizes.fftLen);
    }

    /// Weight of a bin in a band, 0..1.
    double weight(int b, int k) const {
        return static_cast<double>(filters.weight(b)[k]) * sizes.fftLen * sizes.frameLen /
               2.666667401614352;
    }

    FrameSizes sizes;
    BandFilters filters;
};

KestrixParameters withoutHeadroom() {
    KestrixParameters parameters;
    parameters.headroom = 0.0;
    return parameters;
}

// -- Ramps -------------------------------------------------------------------------------------

TEST(IntegrateRamp, GivesEachBinItsMean) {
    float bins[6] = {};
    integrateRamp(bins, 6, 1.5F, 4.25F, 2.0F, 4.75F); // y = x + 0.5
    EXPECT_FLOAT_EQ(bins[0], 0.0F);
    EXPECT_FLOAT_EQ(bins[1], 0.5F * 2.25F);
    EXPECT_FLOAT_EQ(bins[2], 3.0F);
    EXPECT_FLOAT_EQ(bins[3], 4.0F);
    EXPECT_FLOAT_EQ(bins[4], 0.25F * 4.625F);
    EXPECT_FLOAT_EQ(bins[5], 0.0F);
}

TEST(IntegrateRamp, ALineWithinOneBinCountsWithItsWidth) {
    float bins[3] = {};
    integrateRamp(bins, 3, 1.25F, 1.75F, 1.0F, 3.0F);
    EXPECT_FLOAT_EQ(bins[1], 1.0F);
}

TEST(IntegrateRamp, StopsAtTheCurvesEnds) {
    float bins[4] = {0, 0, 0, 99};
    integrateRamp(bins, 3, -2.0F, 10.0F, 1.0F, 1.0F);
    EXPECT_FLOAT_EQ(bins[0], 1.0F);
    EXPECT_FLOAT_EQ(bins[2], 1.0F);
    EXPECT_EQ(bins[3], 99.0F);
    integrateRamp(bins, 3, 3.0F, 10.0F, 1.0F, 1.0F);
    integrateRamp(bins, 3, -5.0F, -1.0F, 1.0F, 1.0F);
    EXPECT_FLOAT_EQ(bins[0], 1.0F);
    EXPECT_EQ(bins[3], 99.0F);
}

// -- Weights -----------------------------------------------------------------------------------

TEST(BandWeights, SumToOneInEachBin) {
    for (const int rate : {8000, 44100, 48000, 192000}) {
        for (const KestrixParameters& parameters : {KestrixParameters{}, factorySettings()}) {
            const Design design{parameters, rate};
            for (int k = 0; k <= design.sizes.fftLen / 2; ++k) {
                double sum = 0.0;
                for (int b = 0; b < kestrixBands; ++b)
                    sum += design.weight(b, k);
                ASSERT_NEAR(sum, 1.0, 2e-5) << rate << " Hz, bin " << k;
            }
        }
    }
}

TEST(BandWeights, AddUpToKnownTotals) {
    const struct {
        bool factory;
        int rate;
        double sums[kestrixBands];
    } rows[] = {{true,
                 44100,
                 {5.804989, 8.591383, 7.430385, 89.629025, 654.802721, 626.938776, 655.802721}},
                {true, 48000, {5.333333, 7.893333, 6.826667, 82.346667, 601.6, 576.0, 769.0}},
                {false,
                 44100,
                 {6.269388, 9.055782, 45.046712, 97.52381, 213.623583, 417.959184, 1259.521542}},
                {false, 48000, {5.76, 8.32, 41.386667, 89.6, 196.266667, 384.0, 1323.666667}}};
    for (const auto& row : rows) {
        const Design design{row.factory ? factorySettings() : KestrixParameters{}, row.rate};
        for (int b = 0; b < kestrixBands; ++b) {
            double sum = 0.0;
            for (int k = 0; k <= design.sizes.fftLen / 2; ++k)
                sum += design.weight(b, k);
            EXPECT_NEAR(sum, row.sums[b], 2e-3) << row.rate << " Hz, band " << b;
        }
    }
}

TEST(BandWeights, EqualEdgesSwitchAtOnePoint) {
    KestrixParameters parameters;
    for (int b = 0; b + 1 < kestrixBands; ++b)
        parameters.band[b].high = parameters.band[b + 1].low;
    const Design design{parameters, 48000};
    // 2000 Hz is bin 170.67.
    EXPECT_NEAR(design.weight(3, 169), 1.0, 1e-5);
    EXPECT_NEAR(design.weight(4, 172), 1.0, 1e-5);
    EXPECT_NEAR(design.weight(3, 170), 2.0 / 3.0, 1e-3);
}

TEST(BandWeights, TheTopEdgeOfTheTopBandHasNoEffect) {
    KestrixParameters parameters = factorySettings();
    const Design usual{parameters, 48000};
    parameters.band[6].high = 17000.0;
    const Design other{parameters, 48000};
    for (int b = 0; b < kestrixBands; ++b)
        for (int k = 0; k < usual.sizes.fftLen; ++k)
            ASSERT_EQ(usual.filters.spectrum(b)[k], other.filters.spectrum(b)[k]);
}

// -- The curve ---------------------------------------------------------------------------------

TEST(GainCurve, UnityEverywhereIsASingleTap) {
    const Design design{withoutHeadroom(), 48000};
    Spectrum impulse;
    for (int k = 0; k < design.sizes.fftLen; ++k)
        impulse.push_back(design.sumAt(k) / static_cast<double>(design.sizes.fftLen));
    transform(impulse, +1);
    EXPECT_NEAR(impulse[0].real(), 1.0, 1e-5);
    for (std::size_t i = 1; i < impulse.size(); ++i)
        ASSERT_LT(std::abs(impulse[i]), 1e-6) << i;
}

TEST(GainCurve, WithoutMagnitudeTheSlidersDoNothing) {
    KestrixParameters sliders = withoutHeadroom();
    for (int n = 0; n < eqNodes; ++n)
        sliders.eq[n] = n % 2 == 0 ? 1.9 : 0.5;
    for (double& delay : sliders.del)
        delay = 0.002;
    sliders.eqall = 0.7;
    sliders.magnitude = 0.0;
    const Design design{sliders, 44100};
    for (int k = 0; k <= design.sizes.fftLen / 2; ++k)
        ASSERT_LT(std::abs(design.sumAt(k) - 1.0), 1e-5) << k;
}

TEST(GainCurve, FactoryCurveAtSomeFrequencies) {
    KestrixParameters parameters = factorySettings();
    parameters.headroom = 0.0;
    const Design design{parameters, 48000};
    const double expected[][2] = {
        {1000, 1.0}, {6000, 0.924732}, {8000, 0.745004}, {12000, 0.696743}, {20000, 0.696743}};
    for (const auto& [hz, gain] : expected) {
        const int k = static_cast<int>(std::lround(hz * design.sizes.fftLen / 48000.0));
        EXPECT_NEAR(std::abs(design.sumAt(k)), gain, 1.5e-3) << hz;
    }
}

TEST(GainCurve, HeadroomScalesAllOfIt) {
    KestrixParameters parameters;
    parameters.headroom = 6.0;
    const Design design{parameters, 48000};
    EXPECT_NEAR(std::abs(design.sumAt(500)), 0.5011872, 1e-5);
}

TEST(GainCurve, NodesBeyondTheNyquistFrequencyHaveNoEffect) {
    KestrixParameters parameters = withoutHeadroom();
    const Design usual{parameters, 16000};
    parameters.eq[eqNodes - 1] = 0.1; // 20 kHz
    parameters.eq[eqNodes - 2] = 1.9; // 18 kHz
    parameters.eq[eqNodes - 3] = 0.3; // 15 kHz
    const Design other{parameters, 16000};
    for (int b = 0; b < kestrixBands; ++b)
        for (int k = 0; k < usual.sizes.fftLen; ++k)
            ASSERT_EQ(usual.filters.spectrum(b)[k], other.filters.spectrum(b)[k]) << b << ", " << k;
}

TEST(GainCurve, TheTiltThatNothingTurnsOnFallsWithTheRootOfFrequency) {
    KestrixParameters parameters = withoutHeadroom();
    const Design flat{parameters, 48000};
    parameters.tiltEnabled = true;
    const Design tilted{parameters, 48000};
    const double hz = 1024 * 48000.0 / 4096;
    EXPECT_NEAR(std::abs(tilted.sumAt(1024)), std::abs(flat.sumAt(1024)) / std::sqrt(hz / 10.0),
                1e-4);
}

// -- Delays ------------------------------------------------------------------------------------

TEST(DelayCurve, ADelayGivesThePhaseOfALaterSignal) {
    KestrixParameters parameters = withoutHeadroom();
    parameters.magnitude = 1.0;
    for (double& delay : parameters.del)
        delay = 0.003;
    const Design design{parameters, 48000};
    // 144 frames everywhere: the sum's impulse response is one tap, 144 frames late.
    Spectrum impulse;
    for (int k = 0; k < design.sizes.fftLen; ++k)
        impulse.push_back(design.sumAt(k) / static_cast<double>(design.sizes.fftLen));
    transform(impulse, +1);
    // The taps are windowed around time 0: cos^2(pi / 2 * 144 / 968).
    const double window = std::pow(std::cos(std::numbers::pi / 2 * 144.0 / 968.0), 2.0);
    EXPECT_NEAR(impulse[144].real(), window, 2e-3);
}

TEST(DelayCurve, OneNodeTurnsThePhaseBetweenItsNeighbours) {
    KestrixParameters parameters = withoutHeadroom();
    parameters.magnitude = 1.0;
    parameters.del[6] = 0.003; // 1 kHz; the nodes beside it, 750 and 1500 Hz, have half
    const Design design{parameters, 48000};
    const auto phaseAt = [&](double hz) {
        return std::arg(design.sumAt(static_cast<int>(std::lround(hz * 4096 / 48000.0))));
    };
    EXPECT_NEAR(phaseAt(300.0), 0.0, 0.02);
    EXPECT_NEAR(phaseAt(4000.0), 0.0, 0.02);
    // At 1 kHz three whole turns; a little above, 3 ms at that frequency, less what the delay
    // falls.
    EXPECT_GT(std::abs(phaseAt(900.0) - phaseAt(1000.0)), 0.5);
}

TEST(DelayCurve, ANegativeDelayIsAPreEcho) {
    KestrixParameters parameters = withoutHeadroom();
    parameters.magnitude = 1.0;
    for (double& delay : parameters.del)
        delay = -0.002;
    const Design design{parameters, 48000};
    Spectrum impulse;
    for (int k = 0; k < design.sizes.fftLen; ++k)
        impulse.push_back(design.sumAt(k) / static_cast<double>(design.sizes.fftLen));
    transform(impulse, +1);
    EXPECT_GT(impulse[4096 - 96].real(), 0.9);
    EXPECT_LT(std::abs(impulse[96]), 0.01);
}

TEST(DelayCurve, BeyondTheFiltersRoomThereIsNothing) {
    KestrixParameters parameters = withoutHeadroom();
    parameters.magnitude = 1.0;
    for (double& delay : parameters.del)
        delay = 0.025; // 1200 frames, of 968
    const Design design{parameters, 48000};
    EXPECT_LT(std::abs(design.sumAt(1000)), 1e-3);
}

// -- Ranges ------------------------------------------------------------------------------------

TEST(FilterRanges, HoldWhatCanBeHeard) {
    const struct {
        int rate;
        int low[kestrixBands], high[kestrixBands];
    } rows[] = {{48000, {0, 0, 0, 0, 68, 380, 1189}, {37, 32, 47, 137, 1028, 1371, 2049}},
                {44100, {0, 0, 0, 0, 77, 414, 1295}, {29, 35, 45, 146, 1118, 1491, 2049}}};
    for (const auto& row : rows) {
        const Design design{factorySettings(), row.rate};
        for (int b = 0; b < kestrixBands; ++b) {
            EXPECT_NEAR(design.filters.range(b).low, row.low[b], 4) << row.rate << ", " << b;
            EXPECT_NEAR(design.filters.range(b).high, row.high[b], 4) << row.rate << ", " << b;
        }
    }
}

TEST(FilterRanges, ASilentBandHasNone) {
    KestrixParameters parameters;
    parameters.magnitude = 1.0;
    parameters.eqall = 0.0;
    const Design design{parameters, 48000};
    for (int b = 0; b < kestrixBands; ++b) {
        EXPECT_EQ(design.filters.range(b).low, 0);
        EXPECT_EQ(design.filters.range(b).high, 0);
    }
}

TEST(BandFilters, AgreeWithTheModel) {
    for (const int rate : {11025, 44100, 96000}) {
        const Design design{factorySettings(), rate};
        const KestrixModel model{factorySettings(), static_cast<double>(rate)};
        for (int b = 0; b < kestrixBands; ++b) {
            double error = 0.0;
            double power = 0.0;
            for (int k = 0; k < model.fftLen; ++k) {
                const auto expected =
                    model.filters[static_cast<std::size_t>(b)][static_cast<std::size_t>(k)];
                error += std::norm(std::complex<double>(design.filters.spectrum(b)[k]) - expected);
                power += std::norm(expected);
            }
            if (power == 0.0) continue; // beyond the Nyquist frequency
            EXPECT_LT(10.0 * std::log10(error / power), -118.0) << rate << " Hz, band " << b;
        }
    }
}

TEST(BandFilters, PlansAreCountedDuringARebuild) {
    const int before = FftPlannerUse::count();
    const Design design{KestrixParameters{}, 48000};
    EXPECT_EQ(FftPlannerUse::count(), before + 2);
}

TEST(BandFilters, AnyRateAndAnyEdgesAreSurvived) {
    KestrixParameters parameters;
    parameters.band[6].low = parameters.band[6].high = 3e38;
    for (const int rate : {1, 10, 100, 700, 3'000'000, 2'000'000'000, -44100, 0}) {
        const Design design{parameters, rate};
        EXPECT_TRUE(std::isfinite(design.sumAt(0).real())) << rate;
    }
}

} // namespace
} // namespace velorine::test
