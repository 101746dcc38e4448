#include "tests/stages/TailRig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace velorine::test {
namespace {

struct BeepRow {
    int streamRate;
    int beepRate;
    int frames;
    int toneEnd;
};

class BeepTest : public testing::Test, protected TailRig {
protected:
    /// A ring of one block at `rate`, and a beep that is due.
    void arm(int rate, int channels = 2) {
        appendTo(ring, blockOf(arena, formatOf(sampleType::int16, channels, rate),
                               counting<std::int16_t>(10 * channels, 1), 500, 700));
        stage.beepPending.store(2);
    }

    /// The left channel of the beep.
    std::vector<double> left() {
        const auto samples = samplesOf<std::int16_t>(out);
        std::vector<double> picked;
        for (std::size_t i = 0; i < samples.size(); i += 2)
            picked.push_back(samples[i]);
        return picked;
    }
};

class Beep : public BeepTest, public testing::WithParamInterface<BeepRow> {};

/// The beep before dither, in long double.
std::vector<long double> model(int beepRate, long double amplitude) {
    const long double s = static_cast<long double>(beepRate) / 48000;
    const auto frames = static_cast<int>(std::llrint(3400 * s));
    const auto toneEnd = std::llrint(2200 * s);
    constexpr long double weights[] = {0.56L, 0.9L, 0.86L, 0.8L, 0.7L, 0.6L};
    std::vector<long double> samples;
    for (int i = 0; i < frames; ++i) {
        const long double t = i * 0.2L / s;
        long double tone = 0;
        for (int k = 0; k < 6; ++k)
            tone += weights[k] * std::cos((2 * k + 1) * t);
        tone *= 0.22624434389140272L;
        const long double rise = i * 0.1L / s;
        const long double fall = static_cast<long double>(toneEnd - i) * 0.1L / s;
        const long double envelope = std::clamp(std::min(rise, fall), 0.0L, 1.0L);
        samples.push_back(tone * amplitude * 32766 * envelope);
    }
    return samples;
}

TEST_P(Beep, IsAToneOfItsRateWithItsDither) {
    const BeepRow& row = GetParam();
    arm(row.streamRate);
    ASSERT_TRUE(process());
    EXPECT_EQ(out.frames(), row.frames);
    EXPECT_EQ(out.format, formatOf(sampleType::int16, 2, row.beepRate));

    const auto expected = model(row.beepRate, 2.0L * 0.12182625L);
    ModelDither dither{seed};
    const auto samples = samplesOf<std::int16_t>(out);
    ASSERT_EQ(samples.size(), 2 * expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const double d = dither.next();
        ASSERT_NEAR(samples[2 * i], static_cast<double>(expected[i]) + d, 0.51) << i;
        ASSERT_EQ(samples[2 * i], samples[2 * i + 1]) << "one value for both channels";
    }
}

TEST_P(Beep, EndsInSilenceButForTheDither) {
    const BeepRow& row = GetParam();
    arm(row.streamRate);
    process();
    const auto samples = left();
    for (std::size_t i = static_cast<std::size_t>(row.toneEnd); i < samples.size(); ++i)
        ASSERT_LE(std::fabs(samples[i]), 1.0) << i;
    EXPECT_GT(*std::max_element(samples.begin(), samples.end()), 7900);
}

INSTANTIATE_TEST_SUITE_P(
    Rates, Beep,
    testing::Values(BeepRow{32000, 32000, 2267, 1467}, BeepRow{44100, 44100, 3124, 2021},
                    BeepRow{48000, 48000, 3400, 2200}, BeepRow{64000, 64000, 4533, 2933},
                    BeepRow{96000, 96000, 6800, 4400}, BeepRow{192000, 192000, 13600, 8800},
                    BeepRow{11025, 48000, 3400, 2200}, BeepRow{22050, 48000, 3400, 2200},
                    BeepRow{88200, 48000, 3400, 2200}, BeepRow{1, 48000, 3400, 2200}),
    [](const auto& tested) { return std::to_string(tested.param.streamRate); });

TEST_F(BeepTest, HasTheKnownSamples) {
    constexpr std::pair<std::size_t, double> known[] = {
        {1, 249.283},   {5, -340.012},    {10, -214.680},   {16, -7385.248}, {31, 6798.086},
        {100, 240.999}, {1000, -234.890}, {2195, -334.021}, {2199, 788.918}, {2200, 0.0}};
    arm(48000);
    process();
    const auto samples = left();
    for (const auto& [i, value] : known)
        EXPECT_NEAR(samples[i], value, 1.5) << i;
}

TEST_F(BeepTest, BeforeAnyAudioItIsAt48Khz) {
    stage.beepPending.store(2);
    ASSERT_TRUE(process());
    EXPECT_EQ(out.format, formatOf(sampleType::int16, 2, 48000));
    EXPECT_EQ(out.frames(), 3400);
}

TEST_F(BeepTest, IsInsertedAndNoAudioIsLost) {
    arm(48000);
    ASSERT_TRUE(process());
    EXPECT_EQ(stage.beepPending.load(), 0);
    EXPECT_EQ(stage.nextFrame, 0);
    EXPECT_EQ(stage.framesOut, 3400);
    EXPECT_EQ(out.timeStart, 500);
    EXPECT_EQ(out.timeEnd, 500);
    EXPECT_EQ(out.srcStart, out.srcEnd);
    EXPECT_EQ(clock.serviceRequests, 1);
    EXPECT_FALSE(stage.standing);
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<std::int16_t>(out), counting<std::int16_t>(20, 1));
}

TEST_F(BeepTest, SoundsWhilePausedAndThenTheStageStands) {
    arm(48000);
    stage.pausedBits.store(2);
    ASSERT_TRUE(process());
    EXPECT_EQ(out.frames(), 3400);
    ASSERT_TRUE(process());
    EXPECT_TRUE(out.empty());
}

TEST_F(BeepTest, NoRewindReachesBackOverIt) {
    arm(48000);
    process();
    process();
    ASSERT_EQ(stage.framesOut, 3410);
    const FxPos anywhere = FxPos::fromFrame(3);
    EXPECT_EQ(stage.alignRewind(-4, anywhere), -4);
    EXPECT_EQ(stage.alignRewind(-10, anywhere), -10);
    EXPECT_EQ(stage.alignRewind(-11, anywhere), -10);
    EXPECT_EQ(stage.alignRewind(-3410, anywhere), -10);
    EXPECT_EQ(stage.alignRewind(-2'000'000'000, anywhere), -10);
}

TEST_F(BeepTest, BeforeTheFirstOneARewindReachesTheBeginning) {
    appendTo(ring, countingBlock(arena, 500, 0, 0, 100));
    process();
    EXPECT_EQ(stage.alignRewind(-500, FxPos::fromFrame(0)), -500);
}

TEST_F(BeepTest, ItsLevelIsTheProductOfTwoFactors) {
    stage.beepGain.store(1.0);
    stage.beepLevel.store(0.2511886);
    arm(48000);
    process();
    const auto expected = model(48000, 0.2511886L);
    const auto samples = left();
    for (std::size_t i = 0; i < samples.size(); ++i)
        ASSERT_NEAR(samples[i], static_cast<double>(expected[i]), 1.51) << i;
}

TEST_F(BeepTest, ATooLoudOneIsClamped) {
    stage.beepGain.store(1.0);
    stage.beepLevel.store(3.0);
    arm(48000);
    process();
    const auto samples = left();
    EXPECT_EQ(*std::max_element(samples.begin(), samples.end()), 32767);
    EXPECT_EQ(*std::min_element(samples.begin(), samples.end()), -32768);
}

TEST_F(BeepTest, ItsDitherIsItsOwn) {
    // Noise for the stream, drawn meanwhile, leaves the beep's alone.
    appendTo(ring, blockOf(arena, formatOf(sampleType::int16, 2, 48000),
                           std::vector<std::int16_t>(2000, 9), 0, 100));
    stage.gain.store(0.5);
    ASSERT_TRUE(process());
    stage.beepPending.store(2);
    ASSERT_TRUE(process());
    ModelDither dither{seed};
    EXPECT_EQ(left()[0], std::llrint(dither.next()));
}

} // namespace
} // namespace velorine::test
