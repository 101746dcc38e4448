#include "kestrix/BandDynamics.h"
#include "tests/kestrix/KestrixModel.h"
#include "tests/kestrix/KestrixRig.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

constexpr double amountAtFactory = 20.0 / 28.0;

/// Detectors that stand at `level`, without a transient.
BandDynamics steadyAt(double level) {
    BandDynamics dynamics;
    for (int b = 0; b < kestrixBands; ++b)
        dynamics.fastLevel[b] = dynamics.slowLevel[b] = level;
    return dynamics;
}

/// The level that the law makes of a steady `level`.
double resultOf(const KestrixParameters& parameters, int b, double level, double amount) {
    return steadyAt(level).gain(b, parameters, amount) * level *
           std::pow(10.0, -parameters.headroom / 20.0);
}

// -- The law -----------------------------------------------------------------------------------

TEST(GainLaw, FactoryTuningInTheSteadyState) {
    const struct {
        int band;
        double results[5];
    } rows[] = {
        {0, {0.5480966, 0.4771458, 0.2182012, 0.0341867, 0.0034187}},
        {1, {0.5480966, 0.4771458, 0.2182012, 0.0341867, 0.0034187}},
        {2, {0.5480966, 0.4771458, 0.2182012, 0.0225869, 0.0022587}},
        {3, {0.5470160, 0.4622668, 0.0904839, 0.0090484, 0.0009048}},
        {4, {0.5468361, 0.4598325, 0.1729247, 0.0177974, 0.0017797}},
        {5, {0.5480966, 0.4771458, 0.1492303, 0.0149230, 0.0014923}},
        {6, {0.5480966, 0.4771458, 0.1492303, 0.0149230, 0.0014923}},
    };
    const double levels[] = {1.0, 0.70710678, 0.1, 0.01, 0.001};
    const KestrixParameters factory = factorySettings();
    for (const auto& row : rows)
        for (int i = 0; i < 5; ++i)
            EXPECT_NEAR(resultOf(factory, row.band, levels[i], amountAtFactory), row.results[i],
                        2e-7)
                << "band " << row.band << ", level " << levels[i];
}

TEST(GainLaw, SilenceHasAGainOfOne) {
    const KestrixParameters factory = factorySettings();
    EXPECT_EQ(steadyAt(0.0).gain(0, factory, 1.0), 1.0);
    EXPECT_EQ(steadyAt(1e-10).gain(3, factory, 1.0), 1.0);
}

TEST(GainLaw, ABandThatIsOffHasAGainOfZeroAndStillMeasures) {
    KestrixParameters parameters = factorySettings();
    parameters.bandEnabled[2] = false;
    BandDynamics dynamics;
    EXPECT_NEAR(dynamics.measure(2, 0.25, 0.0), 0.5, 1e-12);
    EXPECT_EQ(dynamics.gain(2, parameters, 1.0), 0.0);
    EXPECT_NEAR(dynamics.fastLevel[2], 0.5, 1e-12);
    parameters.bandEnabled[2] = true;
    EXPECT_GT(dynamics.gain(2, parameters, 1.0), 0.0);
}

TEST(GainLaw, WithoutMagnitudeOnlyTheLimiterActs) {
    const KestrixParameters factory = factorySettings();
    for (const double level : {0.9, 0.1, 0.001, 1e-6})
        EXPECT_NEAR(steadyAt(level).gain(0, factory, 0.0), 1.0, 1e-9) << level;
    // 4 through the headroom of 3.2 dB is +8.84 dB, held to the limit of +3 dB.
    EXPECT_NEAR(resultOf(factory, 0, 4.0, 0.0), std::pow(10.0, 3.0 / 20.0), 1e-9);
}

TEST(GainLaw, ACompressionAboveOneCountsAsOne) {
    KestrixParameters parameters;
    parameters.headroom = 0.0;
    parameters.compr[globalOffset] = 0.9;
    parameters.compr[1] = 0.7;
    // Every level above the threshold of -21 dB comes out at -3 dB.
    for (const double level : {0.1, 0.3, 1.0})
        EXPECT_NEAR(resultOf(parameters, 1, level, 1.0), std::pow(10.0, -3.0 / 20.0), 1e-9);
}

TEST(GainLaw, NegativeCompressionExpands) {
    KestrixParameters parameters;
    parameters.headroom = 0.0;
    parameters.compr[globalOffset] = -1.0;
    parameters.compr[0] = -1.0;
    // v = -13 dB becomes three times that: -39 dB, less the 3 dB.
    const double level = std::pow(10.0, -16.0 / 20.0);
    EXPECT_NEAR(resultOf(parameters, 0, level, 1.0), std::pow(10.0, -42.0 / 20.0), 1e-9);
}

TEST(GainLaw, BothBranchesAgreeAtTheThreshold) {
    const KestrixParameters factory = factorySettings();
    // Band 0: T = 3 - 8.5 - 3.2 - 18 = -26.7 dB, so a level of -26.7 - 3 + 3.2 dB.
    const double corner = std::pow(10.0, (-26.7 - 3.0 + 3.2) / 20.0);
    const double below = resultOf(factory, 0, corner * 0.9999999, amountAtFactory);
    const double above = resultOf(factory, 0, corner * 1.0000001, amountAtFactory);
    EXPECT_NEAR(below, above, 1e-7);
    // K T - 3 dB, attenuated by 3 dB times the amount: -10.68 - 3 - 2.142857.
    EXPECT_NEAR(above, std::pow(10.0, (-26.7 * 0.4 - 3.0 - 3.0 * amountAtFactory) / 20.0), 1e-6);
}

TEST(GainLaw, AgreesWithTheModelAtRandomLevels) {
    KestrixParameters parameters = factorySettings();
    parameters.atten[3] = -2.5;
    parameters.lim[2] = -6.0;
    KestrixModel model{parameters, 48000.0};
    std::mt19937 generator{4};
    std::uniform_real_distribution<double> decibels{-90.0, 12.0};
    for (int i = 0; i < 2000; ++i) {
        BandDynamics dynamics;
        const int b = i % kestrixBands;
        dynamics.fastLevel[b] = model.fast[b] = std::pow(10.0, decibels(generator) / 20.0);
        dynamics.slowLevel[b] = model.slow[b] = std::pow(10.0, decibels(generator) / 20.0);
        const double out = dynamics.gain(b, parameters, parameters.magnitude) *
                           dynamics.fastLevel[b] * std::pow(10.0, -parameters.headroom / 20.0);
        ASSERT_NEAR(out, model.law(b), 1e-9 * model.law(b)) << i;
    }
}

// -- The detectors -----------------------------------------------------------------------------

TEST(Detectors, AttackAtOnceAndDecayByTheReleaseFactor) {
    BandDynamics dynamics;
    dynamics.measure(0, 0.25, 0.0);
    EXPECT_EQ(dynamics.fastLevel[0], 0.5);
    dynamics.measure(0, 0.0, 0.0);
    EXPECT_NEAR(dynamics.fastLevel[0], 0.5 * 0.7889430346, 1e-10);
    dynamics.measure(0, 0.0, 0.0);
    EXPECT_NEAR(dynamics.fastLevel[0], 0.5 * 0.7889430346 * 0.7889430346, 1e-10);
}

TEST(Detectors, TheSlowLevelRisesSlowerThanItFalls) {
    const struct {
        double length, falling, rising;
    } rows[] = {{0.02, 0.1226738, 0.3502482},
                {0.04, 0.1770601, 0.4207851},
                {0.06, 0.2194550, 0.4684603},
                {0.5, 0.6742761, 0.8211432}};
    for (const auto& row : rows) {
        KestrixParameters parameters;
        parameters.trans[0].length = row.length;
        BandDynamics dynamics;
        dynamics.fastLevel[0] = 1.0;
        dynamics.followReference(parameters);
        EXPECT_NEAR(dynamics.slowLevel[0], 1.0 - row.rising, 1e-7);
        dynamics.slowLevel[0] = 1.0;
        dynamics.fastLevel[0] = 0.0;
        dynamics.followReference(parameters);
        EXPECT_NEAR(dynamics.slowLevel[0], row.falling, 1e-7);
    }
}

TEST(Detectors, ALengthOfZeroPutsTheReferenceOnTheLevel) {
    KestrixParameters parameters;
    parameters.trans[4].length = 0.0;
    BandDynamics dynamics;
    dynamics.fastLevel[4] = 0.7;
    dynamics.followReference(parameters);
    EXPECT_EQ(dynamics.slowLevel[4], 0.7);
}

TEST(Detectors, StereoSpreadIsMeasuredAndActsOnNothing) {
    const KestrixParameters factory = factorySettings();
    BandDynamics oneSided;
    BandDynamics centred;
    oneSided.measure(1, 0.5, 0.5);
    centred.measure(1, 0.5, 0.0);
    EXPECT_EQ(oneSided.stereoSpread[1], 1.0);
    EXPECT_EQ(centred.stereoSpread[1], 0.0);
    EXPECT_EQ(oneSided.gain(1, factory, 1.0), centred.gain(1, factory, 1.0));
    oneSided.measure(1, 0.1, 0.0); // falling: smoothed
    EXPECT_NEAR(oneSided.stereoSpread[1], 0.8, 1e-12);
    EXPECT_NEAR(oneSided.smoothEnergy[1], 0.8 * 0.5 + 0.2 * 0.1, 1e-12);
}

// -- Transients --------------------------------------------------------------------------------

KestrixParameters sharpTransients() {
    KestrixParameters parameters;
    parameters.headroom = 0.0;
    parameters.lim[globalOffset] = 60.0; // out of the way
    for (auto& trans : parameters.trans)
        trans = {1.0, 1.0, 0.5};
    return parameters;
}

TEST(TransientEnhancement, PeaksAtSeventeenDb) {
    BandDynamics dynamics = steadyAt(0.1);
    dynamics.slowLevel[0] = 0.0;
    const double lift =
        dynamics.gain(0, sharpTransients(), 1.0) / steadyAt(0.1).gain(0, sharpTransients(), 1.0);
    EXPECT_NEAR(20.0 * std::log10(lift), 17.38, 0.005);
}

TEST(TransientEnhancement, OneDbOverTheReferenceIsHalfAtFullSensitivity) {
    BandDynamics dynamics = steadyAt(0.1);
    dynamics.slowLevel[0] = 0.1 * std::pow(10.0, -1.0 / 20.0);
    const double lift =
        dynamics.gain(0, sharpTransients(), 1.0) / steadyAt(0.1).gain(0, sharpTransients(), 1.0);
    EXPECT_NEAR((lift - 1.0) / 6.4, 0.4988, 1e-4);
}

TEST(TransientEnhancement, NeverCuts) {
    BandDynamics dynamics = steadyAt(0.1);
    dynamics.slowLevel[0] = 1.0;
    EXPECT_EQ(dynamics.gain(0, sharpTransients(), 1.0),
              steadyAt(0.1).gain(0, sharpTransients(), 1.0));
}

TEST(TransientEnhancement, NoSensitivityMeansNoLift) {
    KestrixParameters parameters = sharpTransients();
    parameters.trans[0].sensitivity = 0.0;
    BandDynamics dynamics = steadyAt(0.1);
    dynamics.slowLevel[0] = 0.001;
    EXPECT_EQ(dynamics.gain(0, parameters, 1.0), steadyAt(0.1).gain(0, parameters, 1.0));
}

TEST(TransientEnhancement, OffChangesNothingAndTheReferenceRunsOn) {
    KestrixParameters on = sharpTransients();
    KestrixParameters off = on;
    off.enabletrans = false;
    BandDynamics dynamics = steadyAt(0.1);
    dynamics.slowLevel[0] = 0.01;
    EXPECT_EQ(dynamics.gain(0, off, 1.0), steadyAt(0.1).gain(0, off, 1.0));
    BandDynamics other = dynamics;
    dynamics.followReference(on);
    other.followReference(off);
    EXPECT_EQ(dynamics.slowLevel[0], other.slowLevel[0]);
    EXPECT_GT(other.slowLevel[0], 0.01);
}

TEST(TransientEnhancement, AFreshStageLiftsItsFirstSignalAndARestartedOneDoesNot) {
    BandDynamics fresh;
    fresh.measure(0, 0.01, 0.0);
    BandDynamics restarted = fresh;
    restarted.restart();
    const KestrixParameters parameters = sharpTransients();
    EXPECT_GT(fresh.gain(0, parameters, 1.0), 5.0 * restarted.gain(0, parameters, 1.0));
}

} // namespace
} // namespace velorine::test
