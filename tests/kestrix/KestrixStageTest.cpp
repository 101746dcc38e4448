#include "foundation/CpuFeatures.h"
#include "tests/kestrix/KestrixModel.h"
#include "tests/kestrix/KestrixRig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>

namespace velorine::test {
namespace {

constexpr double pi = std::numbers::pi;

/// Amplitude of a sine in one channel of `pairs`, over its last `frames` frames.
std::complex<double> partOf(const std::vector<float>& pairs, int frames, double hz, double rate,
                            int channel = 0) {
    const auto total = static_cast<int>(pairs.size() / 2);
    std::complex<double> sum;
    for (int i = total - frames; i < total; ++i)
        sum += static_cast<double>(pairs[static_cast<std::size_t>(2 * i + channel)]) *
               std::polar(1.0, -2.0 * pi * hz * i / rate);
    return sum * 2.0 / static_cast<double>(frames);
}

// -- Framing -----------------------------------------------------------------------------------

TEST(KestrixStage, TheFirstCallDeliversOneHopAfterItsWarmUp) {
    KestrixRig rig;
    rig.feed(noisePairs(4031, 0.5F, 1), 44100);
    EXPECT_FALSE(rig.process());
    rig.feed(noisePairs(1, 0.5F, 2), 44100);
    ASSERT_TRUE(rig.process());
    EXPECT_EQ(rig.out.frames(), 992);
    EXPECT_EQ(rig.out.format.type, sampleType::float32);
    EXPECT_EQ(rig.out.format.channels, 2);
    EXPECT_EQ(rig.out.format.rate, 44100);
    EXPECT_EQ(rig.out.srcStart, 0);
    EXPECT_EQ(rig.out.srcEnd, std::int64_t{992} << 16);
    EXPECT_FALSE(rig.process());
}

TEST(KestrixStage, YieldsAsManyFramesAsTheInputHolds) {
    const struct {
        int rate, in, out;
    } rows[] = {
        {44100, 5023, 992}, {44100, 5024, 1984}, {44100, 441000, 437472}, {48000, 480000, 476280}};
    for (const auto& row : rows) {
        KestrixRig rig;
        rig.feed(noisePairs(row.in, 0.5F, 1), row.rate);
        EXPECT_EQ(static_cast<int>(rig.run().size() / 2), row.out) << row.in;
    }
}

TEST(KestrixStage, AHopGoesOutHoweverFewFramesAreAskedFor) {
    KestrixRig rig;
    rig.feed(noisePairs(48000, 0.5F, 1), 48000);
    EXPECT_FALSE(rig.process(0));
    ASSERT_TRUE(rig.process(1));
    EXPECT_EQ(rig.out.frames(), 1080);
}

TEST(KestrixStage, TheWarmUpRunsTheDetectors) {
    // Sound that begins with frame 0 is heard by the warm-up: no lift is left of its attack when
    // the same sound goes on for long enough.
    KestrixParameters parameters;
    parameters.enabletrans = true;
    KestrixRig rig{parameters};
    rig.feed(noisePairs(48000, 0.5F, 1), 48000);
    KestrixModel model{parameters, 48000.0};
    const std::vector<double> expected = model.process(noisePairs(48000, 0.5F, 1));
    ASSERT_TRUE(rig.process());
    const std::vector<float> first = samplesOf<float>(rig.out);
    for (std::size_t i = 0; i < first.size(); ++i)
        ASSERT_NEAR(static_cast<double>(first[i]), expected[i], 1e-5) << i;
}

TEST(KestrixStage, AnEmptyRingYieldsNothing) {
    KestrixRig rig;
    EXPECT_FALSE(rig.process());
}

TEST(KestrixStage, TimesFollowTheInput) {
    KestrixRig rig;
    rig.feed(noisePairs(48000, 0.5F, 1), 48000);
    ASSERT_TRUE(rig.process());
    EXPECT_EQ(rig.out.timeStart, 0);
    EXPECT_EQ(rig.out.timeEnd, 225'000); // 1080 frames
    ASSERT_TRUE(rig.process());
    EXPECT_EQ(rig.out.timeStart, 225'000);
    EXPECT_EQ(rig.out.timeEnd, 450'000);
    EXPECT_EQ(rig.stage.lagFrames(), 1080);
}

TEST(KestrixStage, AnImpulseComesHalfAFrameEarly) {
    KestrixParameters parameters;
    parameters.magnitude = 0.0;
    parameters.headroom = 0.0;
    std::vector<float> pairs(2 * 20'000);
    pairs[2 * 9000] = 0.5F;
    KestrixRig rig{parameters};
    rig.feed(pairs, 48000);
    const std::vector<float> heard = rig.run();
    const auto loudest = std::max_element(heard.begin(), heard.end());
    EXPECT_EQ((loudest - heard.begin()) / 2, 9000 - 1080);
    EXPECT_NEAR(*loudest, 0.5F, 1e-4F);
}

TEST(KestrixStage, ARateChangeRebuildsAtTheFirstWholeFrame) {
    KestrixRig rig;
    rig.feed(noisePairs(5024, 0.5F, 1), 44100);
    ASSERT_TRUE(rig.process());
    ASSERT_TRUE(rig.process()); // up to frame 1984
    rig.stage.seek(-1, FxPos::fromFrame(5024));
    rig.feed(noisePairs(4207, 0.5F, 2), 48000);
    EXPECT_FALSE(rig.process());
    EXPECT_TRUE(rig.stage.rebuildPending);
    rig.feed(noisePairs(1, 0.5F, 3), 48000);
    ASSERT_TRUE(rig.process());
    EXPECT_FALSE(rig.stage.rebuildPending);
    EXPECT_EQ(rig.out.frames(), 1080);
    EXPECT_EQ(rig.out.format.rate, 48000);
}

TEST(KestrixStage, MonoIsDoubledAndFurtherChannelsAreLeftOut) {
    const std::vector<float> stereo = noisePairs(10'000, 0.5F, 1);
    std::vector<float> mono;
    std::vector<float> doubled;
    std::vector<float> six;
    for (std::size_t i = 0; i < stereo.size(); i += 2) {
        mono.push_back(stereo[i]);
        doubled.insert(doubled.end(), {stereo[i], stereo[i]});
        six.insert(six.end(), {stereo[i], stereo[i + 1], 0.9F, -0.9F, 0.3F, 0.1F});
    }
    const auto outputOf = [](const std::vector<float>& samples, int channels) {
        KestrixRig rig;
        appendTo(rig.ring, blockOf(rig.arena, formatOf(sampleType::float32, channels, 48000),
                                   samples, 0, 2'000'000));
        return rig.run();
    };
    EXPECT_EQ(outputOf(mono, 1), outputOf(doubled, 2));
    EXPECT_EQ(outputOf(six, 6), outputOf(stereo, 2));
}

TEST(KestrixStage, InputStartLeavesRoomForTheWarmUp) {
    for (int rate = 6000; rate < 200'000; rate += 977) {
        const FrameSizes sizes = computeFrameSizes(static_cast<float>(rate));
        ASSERT_GE(2 * sizes.padLen, sizes.warmUp() - sizes.fftLen / 2) << rate;
    }
    KestrixRig rig;
    EXPECT_EQ(rig.stage.inputStartFor(0, FxPos::fromFrame(10'000)), 10'000 - 2 * 2112);
    rig.stage.parameters.enable = false;
    EXPECT_EQ(rig.stage.inputStartFor(0, FxPos::fromFrame(10'000)), 10'000);
    EXPECT_EQ(rig.stage.lagFrames(), 0);
    EXPECT_EQ(rig.stage.inputEndFor(0, FxPos{5, 1}), 6);
    EXPECT_EQ(rig.stage.alignRewind(-77, FxPos{}), -77);
}

// -- What it does to sound ---------------------------------------------------------------------

TEST(KestrixSound, LevelsEndToEndAtTheFactoryTuning) {
    const struct {
        double hz, in, at44100, at48000;
    } rows[] = {{40, 0.5, 0.48869, 0.50101},      {40, 0.01, 0.034193, 0.034193},
                {100, 0.1, 0.218396, 0.219297},   {200, 0.1, 0.214808, 0.211468},
                {500, 1.0, 0.0, 0.547043},        {500, 0.5, 0.390647, 0.390659},
                {500, 0.1, 0.090484, 0.090486},   {500, 0.01, 0.009048, 0.009049},
                {1000, 0.5, 0.44334, 0.44345},    {1000, 0.1, 0.105851, 0.105920},
                {3000, 0.5, 0.386671, 0.386671},  {3000, 0.1, 0.172925, 0.172925},
                {3000, 0.01, 0.017797, 0.017797}, {13000, 0.5, 0.289413, 0.289413},
                {13000, 0.1, 0.103975, 0.103975}, {18000, 0.1, 0.103975, 0.103975}};
    for (const int rate : {44100, 48000}) {
        for (const auto& row : rows) {
            const double expected = rate == 44100 ? row.at44100 : row.at48000;
            if (expected == 0.0) continue;
            KestrixRig rig;
            rig.feed(sinePairs(rate * 2, row.hz, rate, row.in, row.in), rate);
            const std::vector<float> heard = rig.run();
            const auto part = partOf(heard, rate / 10, row.hz, rate);
            EXPECT_NEAR(std::abs(part), expected, 1e-3 * expected)
                << row.hz << " Hz at " << row.in << ", " << rate;
        }
    }
}

TEST(KestrixSound, TheOutputIsInPhaseWithTheInput) {
    const int rate = 48000;
    for (const double hz : {100.0, 1000.0, 3000.0, 13000.0}) {
        KestrixRig rig;
        rig.feed(sinePairs(2 * rate, hz, rate, 0.1, 0.1), rate);
        const auto part = partOf(rig.run(), rate / 10, hz, rate);
        // sin, heard frame i holds input frame i + 1080
        const double expected = std::remainder(2.0 * pi * hz * 1080.0 / rate - pi / 2, 2.0 * pi);
        EXPECT_LT(std::abs(std::remainder(std::arg(part) - expected, 2.0 * pi)), 1e-3) << hz;
    }
}

TEST(KestrixSound, WithoutMagnitudeTheOutputIsTheInputLessTheHeadroom) {
    KestrixParameters parameters = factorySettings();
    parameters.magnitude = 0.0;
    parameters.lim[globalOffset] = 20.0;
    parameters.softclip = false;
    const std::vector<float> pairs = noisePairs(100'000, 0.9F, 1);
    KestrixRig rig{parameters};
    rig.feed(pairs, 48000);
    const std::vector<float> heard = rig.run();
    const double headroom = std::pow(10.0, -3.2 / 20.0);
    for (std::size_t i = heard.size() - 20'000; i < heard.size(); ++i)
        ASSERT_NEAR(static_cast<double>(heard[i]),
                    headroom * static_cast<double>(pairs[i + 2 * 1080]), 1e-5);
}

TEST(KestrixSound, OneChannelStaysOne) {
    KestrixRig rig;
    rig.feed(sinePairs(96'000, 500.0, 48000, 1.0, 0.0), 48000);
    const std::vector<float> heard = rig.run();
    EXPECT_NEAR(std::abs(partOf(heard, 4800, 500.0, 48000)), 0.653769, 1e-3);
    float right = 0.0F;
    for (std::size_t i = heard.size() - 9600; i < heard.size(); i += 2)
        right = std::max(right, std::abs(heard[i + 1]));
    EXPECT_LT(right, 1e-6F);
}

TEST(KestrixSound, BothChannelsGetOneGain) {
    KestrixRig rig;
    rig.feed(sinePairs(96'000, 1000.0, 48000, 0.1, 0.05), 48000);
    const std::vector<float> heard = rig.run();
    EXPECT_NEAR(std::abs(partOf(heard, 4800, 1000.0, 48000, 0)), 0.105920, 1e-4);
    EXPECT_NEAR(std::abs(partOf(heard, 4800, 1000.0, 48000, 1)), 0.052960, 1e-4);
}

TEST(KestrixSound, TheSoftClipHoldsFullScaleForAnyInput) {
    KestrixRig rig;
    rig.feed(noisePairs(48'000, 4.0F, 3), 48000);
    for (const float sample : rig.run())
        ASSERT_LE(std::abs(sample), 1.0F + 1e-6F);
}

TEST(KestrixSound, WithoutTheSoftClipPeaksPass) {
    KestrixParameters parameters;
    parameters.softclip = false;
    parameters.headroom = 0.0;
    KestrixRig rig{parameters};
    rig.feed(noisePairs(48'000, 4.0F, 3), 48000);
    const std::vector<float> heard = rig.run();
    EXPECT_GT(*std::max_element(heard.begin(), heard.end()), 1.2F);
}

TEST(KestrixSound, ABandThatIsOffIsGoneAndStillMetered) {
    KestrixParameters parameters = factorySettings();
    parameters.bandEnabled[4] = false; // 1.5 to 4.5 kHz
    KestrixRig rig{parameters};
    rig.feed(sinePairs(96'000, 3000.0, 48000, 0.5, 0.5), 48000);
    const std::vector<float> heard = rig.run();
    EXPECT_LT(std::abs(partOf(heard, 4800, 3000.0, 48000)), 1e-4);
    double levels[kestrixBands];
    rig.stage.levelsAt(15'000'000, levels);
    EXPECT_NEAR(levels[4], 0.5, 1e-3);
}

TEST(KestrixSound, TheMetersReadAmplitudeInBothChannels) {
    for (const double hz : {60.0, 320.0, 700.0, 3000.0, 9000.0, 15000.0}) {
        KestrixRig rig;
        rig.feed(sinePairs(72'000, hz, 48000, 0.5, 0.5), 48000);
        rig.run();
        double levels[kestrixBands];
        rig.stage.levelsAt(10'000'000, levels);
        double energy = 0.0;
        for (const double level : levels)
            energy += level * level;
        EXPECT_NEAR(energy, 0.25, 1e-3) << hz;
    }
    KestrixRig rig;
    rig.feed(sinePairs(72'000, 500.0, 48000, 1.0, 0.0), 48000);
    rig.run();
    double levels[kestrixBands];
    rig.stage.levelsAt(10'000'000, levels);
    EXPECT_NEAR(levels[3], 0.70711, 1e-3);
}

TEST(KestrixSound, EqualInputGivesEqualBits) {
    const auto outputOf = [] {
        KestrixRig rig;
        rig.feed(noisePairs(30'000, 0.8F, 9), 44100);
        return rig.run();
    };
    EXPECT_EQ(outputOf(), outputOf());
}

// -- Going back --------------------------------------------------------------------------------

TEST(KestrixRewind, ARewindRunsTheWarmUpAgain) {
    KestrixParameters parameters = factorySettings();
    parameters.enabletrans = false; // the one thing that a restart changes
    for (auto& trans : parameters.trans)
        trans.length = 0.0;
    const std::vector<float> pairs = noisePairs(60'000, 0.3F, 4);
    KestrixRig straight{parameters};
    straight.feed(pairs, 48000);
    const std::vector<float> expected = straight.run();

    KestrixRig rig{parameters};
    rig.feed(pairs, 48000);
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(rig.process());
    rig.stage.seek(-5 * 1080, FxPos::fromFrame(15 * 1080));
    std::vector<float> again = rig.run();
    ASSERT_EQ(again.size(), expected.size() - 2U * 15U * 1080U);
    // The fast detectors keep what they held, which decays within the warm-up and a little more.
    double error = 0.0;
    for (std::size_t i = 0; i < again.size(); ++i)
        error = std::max(error, std::abs(static_cast<double>(again[i]) -
                                         static_cast<double>(expected[i + 2U * 15U * 1080U])));
    EXPECT_LT(error, 0.02);
}

TEST(KestrixRewind, SeekingByNothingKeepsTheStream) {
    const std::vector<float> pairs = noisePairs(30'000, 0.5F, 4);
    KestrixRig straight;
    straight.feed(pairs, 48000);
    const std::vector<float> expected = straight.run();
    KestrixRig rig;
    rig.feed(pairs, 48000);
    std::vector<float> heard;
    while (rig.process()) {
        const std::vector<float> samples = samplesOf<float>(rig.out);
        heard.insert(heard.end(), samples.begin(), samples.end());
        rig.stage.seek(0, FxPos::fromFrame(rig.out.srcEnd >> 16));
    }
    EXPECT_EQ(heard, expected);
}

TEST(KestrixRewind, TheHistoryForgetsWhatIsPlayedAnew) {
    KestrixRig rig;
    rig.feed(sinePairs(48'000, 1000.0, 48000, 0.5, 0.5), 48000);
    rig.run();
    rig.stage.seek(-10, FxPos::fromFrame(0));
    ASSERT_TRUE(rig.process());
    double levels[kestrixBands];
    rig.stage.levelsAt(9'000'000, levels);
    EXPECT_EQ(levels[3], 0.0);
}

TEST(KestrixRewind, PruningKeepsTheMetersAlive) {
    KestrixRig rig;
    rig.feed(sinePairs(96'000, 1000.0, 48000, 0.5, 0.5), 48000);
    rig.run();
    rig.stage.inputStartFor(0, FxPos::fromFrame(1'000'000));
    double levels[kestrixBands];
    rig.stage.levelsAt(0, levels);
    EXPECT_GT(levels[3], 0.3);
}

// -- Switches ----------------------------------------------------------------------------------

TEST(KestrixDisabled, BlocksGoOnByReference) {
    KestrixRig rig;
    rig.stage.parameters.enable = false;
    for (int i = 0; i < 3; ++i)
        rig.feed(noisePairs(1000, 0.5F, 1), 44100);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(rig.process());
        EXPECT_EQ(rig.out.buffer.get(), rig.ring.at(i).buffer.get());
        EXPECT_EQ(rig.out.frames(), 1000);
        EXPECT_EQ(rig.out.srcStart, std::int64_t{1000} * i << 16);
    }
    EXPECT_FALSE(rig.process());
}

TEST(KestrixDisabled, ABlockEnteredInsideGoesOnFromThere) {
    KestrixRig rig;
    rig.stage.parameters.enable = false;
    rig.feed(noisePairs(1000, 0.5F, 1), 48000);
    rig.stage.seek(-1, FxPos{300, 77});
    ASSERT_TRUE(rig.process());
    EXPECT_EQ(rig.out.frames(), 700);
    EXPECT_EQ(rig.out.timeStart, 62'500);
    EXPECT_EQ(rig.out.srcStart, std::int64_t{300} << 16);
}

TEST(KestrixDisabled, GapsBecomeSilenceInPieces) {
    KestrixRig rig;
    rig.stage.parameters.enable = false;
    FxBlock late = blockOf(rig.arena, formatOf(sampleType::float32, 2, 48000),
                           noisePairs(100, 0.5F, 1), 0, 1000);
    late.posStart = 1000;
    late.posEnd = 1100;
    rig.ring.push(late);
    ASSERT_TRUE(rig.process());
    EXPECT_EQ(rig.out.frames(), 576);
    EXPECT_EQ(samplesOf<float>(rig.out), std::vector<float>(2 * 576));
    ASSERT_TRUE(rig.process());
    EXPECT_EQ(rig.out.frames(), 424);
    ASSERT_TRUE(rig.process());
    EXPECT_EQ(rig.out.frames(), 100);
    EXPECT_FALSE(rig.process());
}

TEST(KestrixDisabled, BackOnTheFirstFrameIsFull) {
    const std::vector<float> pairs = sinePairs(60'000, 1000.0, 48000, 0.1, 0.1);
    KestrixRig rig;
    rig.stage.parameters.enable = false;
    rig.feed(pairs, 48000);
    ASSERT_TRUE(rig.process());
    rig.stage.parameters.enable = true;
    rig.stage.seek(0, FxPos::fromFrame(20'000));
    ASSERT_TRUE(rig.process());
    const std::vector<float> heard = samplesOf<float>(rig.out);
    const float loudest = *std::max_element(heard.begin(), heard.begin() + 96);
    EXPECT_GT(loudest, 0.08F); // no rise out of silence
}

TEST(KestrixSettings, ChangesOfTheDynamicsTakeEffectWithoutARebuild) {
    KestrixRig rig;
    rig.feed(sinePairs(200'000, 3000.0, 48000, 0.1, 0.1), 48000);
    for (int i = 0; i < 60; ++i)
        ASSERT_TRUE(rig.process());
    const double before = std::abs(partOf(samplesOf<float>(rig.out), 1080, 3000.0, 48000));
    rig.stage.parameters.atten[4] = -6.0;
    for (int i = 0; i < 4; ++i)
        ASSERT_TRUE(rig.process());
    EXPECT_FALSE(rig.stage.rebuildPending);
    const double after = std::abs(partOf(samplesOf<float>(rig.out), 1080, 3000.0, 48000));
    EXPECT_NEAR(20.0 * std::log10(after / before), -6.0 * 20.0 / 28.0, 0.05);
}

TEST(KestrixSettings, ChangesOfTheCurveTakeEffectWithTheRebuild) {
    KestrixRig rig;
    rig.feed(sinePairs(200'000, 3000.0, 48000, 0.1, 0.1), 48000);
    for (int i = 0; i < 60; ++i)
        ASSERT_TRUE(rig.process());
    const double before = std::abs(partOf(samplesOf<float>(rig.out), 1080, 3000.0, 48000));
    rig.stage.parameters.eqall = 0.5;
    ASSERT_TRUE(rig.process());
    EXPECT_NEAR(std::abs(partOf(samplesOf<float>(rig.out), 1080, 3000.0, 48000)), before, 1e-4);
    rig.stage.rebuildPending = true;
    ASSERT_TRUE(rig.process());
    const double after = std::abs(partOf(samplesOf<float>(rig.out), 1080, 3000.0, 48000));
    EXPECT_NEAR(after / before, 1.0 + (0.5 - 1.0) * 20.0 / 28.0, 2e-3);
}

TEST(KestrixSettings, TheComparisonScaleTakesAllEffectAway) {
    KestrixRig rig;
    rig.stage.parameters.magnitudeScale = 0.0;
    rig.feed(sinePairs(96'000, 3000.0, 48000, 0.1, 0.1), 48000);
    const double out = std::abs(partOf(rig.run(), 4800, 3000.0, 48000));
    EXPECT_NEAR(out, 0.1 * std::pow(10.0, -3.2 / 20.0), 1e-4);
}

TEST(KestrixSettings, EachFormOfTheKernelsSoundsTheSame) {
    const std::vector<float> pairs = noisePairs(30'000, 0.9F, 8);
    std::vector<std::vector<float>> outputs;
    for (const std::uint32_t features : {std::uint32_t{0}, cpuFeature::sse2, cpuFeatures()}) {
        FxArena arena;
        FxRing ring;
        KestrixStage stage{features};
        stage.parameters = factorySettings();
        appendTo(ring,
                 blockOf(arena, formatOf(sampleType::float32, 2, 48000), pairs, 0, 6'250'000));
        std::vector<float> heard;
        for (FxBlock out; stage.process(arena, out, ring, 4096); out = FxBlock{}) {
            const std::vector<float> samples = samplesOf<float>(out);
            heard.insert(heard.end(), samples.begin(), samples.end());
        }
        outputs.push_back(heard);
    }
    for (std::size_t i = 0; i < outputs[0].size(); ++i) {
        ASSERT_NEAR(outputs[0][i], outputs[1][i], 3e-6F);
        ASSERT_NEAR(outputs[0][i], outputs[2][i], 3e-6F);
    }
}

} // namespace
} // namespace velorine::test
