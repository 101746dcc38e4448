#include "stages/TestSignalStage.h"

#include "tests/stages/StageChain.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace velorine::test {
namespace {

/// The signal alone, without any input.
struct SignalChain : StageChain<TestSignalStage> {
    SignalChain() { stage.enable = true; }

    /// The next `blocks` blocks, one channel.
    std::vector<double> next(int blocks, int index = 0) {
        delivered.clear();
        for (int i = 0; i < blocks; ++i)
            EXPECT_TRUE(pump());
        std::vector<double> samples;
        for (const std::int32_t sample : channel<std::int32_t>(index))
            samples.push_back(sample);
        return samples;
    }
};

constexpr double minus12 = 539423503.35; // of 2^31 - 1.5
constexpr double fullScale = 2147483646.5;
constexpr double ditherAndRounding = 1.5;

double sineAt(double hz, double frame, int rate = 48000) {
    return std::sin(2.0 * std::numbers::pi * hz / rate * frame);
}

TEST(TestSignal, IsAToneOf1000HzFromTheStart) {
    SignalChain chain;
    const auto left = chain.next(20);
    ASSERT_EQ(left.size(), 20U * 576U);
    EXPECT_EQ(chain.last.frames(), 576);
    EXPECT_EQ(chain.last.buffer.bytes(), 4608);
    EXPECT_EQ(chain.last.format, formatOf(sampleType::int32, 2, 48000));
    for (std::size_t i = 0; i < left.size(); ++i)
        ASSERT_NEAR(left[i], minus12 * sineAt(1000.0, static_cast<double>(i)), 2.0) << i;
}

TEST(TestSignal, TheChannelsDifferByTheirDitherAlone) {
    SignalChain chain;
    const auto left = chain.next(20);
    int different = 0;
    for (std::size_t i = 0; i < left.size(); ++i) {
        const double right = chain.delivered[i].sample<std::int32_t>(1);
        ASSERT_LE(std::fabs(left[i] - right), 3.0);
        different += left[i] != right ? 1 : 0;
    }
    EXPECT_GT(different, static_cast<int>(left.size()) / 3);
}

TEST(TestSignal, DitherIsOneStepOfTriangularNoise) {
    SignalChain chain;
    chain.stage.toneAOn = false;
    double sum = 0.0;
    double squares = 0.0;
    const auto left = chain.next(200);
    for (const double x : left) {
        ASSERT_LE(std::fabs(x), 1.0);
        sum += x;
        squares += x * x;
    }
    const auto count = static_cast<double>(left.size());
    EXPECT_NEAR(sum / count, 0.0, 0.01);
    EXPECT_NEAR(squares / count, 0.25, 0.01); // 1/6 of the dither and 1/12 of the rounding
}

TEST(TestSignal, FrequenciesAboveHalfTheRateCountAsThat) {
    SignalChain chain;
    chain.stage.freqA = 30'000.0;
    chain.stage.levelA = -6.0;
    const double level = std::pow(10.0, -0.3) * fullScale;
    const auto left = chain.next(3);
    for (std::size_t i = 0; i < left.size(); ++i)
        ASSERT_NEAR(left[i], i % 2 == 0 ? level : -level, ditherAndRounding) << i;
}

TEST(TestSignal, FromAnyPhaseHalfTheRateAlternatesFullPeaks) {
    SignalChain chain;
    chain.stage.freqA = 48000.0 / 576 * 0.25; // a quarter of a cycle a block
    chain.next(1);
    chain.stage.freqA = 24'000.0;
    const auto left = chain.next(2);
    for (std::size_t i = 0; i < left.size(); ++i)
        ASSERT_NEAR(left[i], i % 2 == 0 ? minus12 : -minus12, ditherAndRounding) << i;

    SignalChain behind;
    behind.stage.freqA = 48000.0 / 576 * 0.75;
    behind.next(1);
    behind.stage.freqA = 24'000.0;
    EXPECT_NEAR(behind.next(1)[0], -minus12, ditherAndRounding);
}

TEST(TestSignal, AFrequencyOfZeroIsAConstantAtFullLevel) {
    SignalChain chain;
    chain.stage.freqA = 0.0;
    for (const double x : chain.next(2))
        ASSERT_NEAR(x, minus12, ditherAndRounding);
}

TEST(TestSignal, BothTonesAtFullScaleClamp) {
    SignalChain chain;
    chain.stage.toneBOn = true;
    chain.stage.levelA = 0.0;
    chain.stage.levelB = 0.0;
    chain.stage.freqB = 1000.0;
    int most = 0;
    const auto left = chain.next(10);
    for (std::size_t i = 0; i < left.size(); ++i) {
        const double sum = 2.0 * fullScale * sineAt(1000.0, static_cast<double>(i));
        ASSERT_NEAR(left[i], std::clamp(sum, -2147483648.0, 2147483647.0), 4.0);
        most += left[i] == 2147483647.0 ? 1 : 0;
    }
    EXPECT_GT(most, 1000);
}

TEST(TestSignal, AChangeOfFrequencyCountsFromTheNextBlockOnWithoutAJump) {
    SignalChain chain;
    chain.stage.freqA = 777.0;
    chain.next(1);
    chain.stage.freqA = 1234.5;
    const double phase = 777.0 / 48000.0 * 576.0;
    const auto left = chain.next(2);
    for (std::size_t i = 0; i < left.size(); ++i)
        ASSERT_NEAR(left[i],
                    minus12 * std::sin(2.0 * std::numbers::pi *
                                       (phase + 1234.5 / 48000.0 * static_cast<double>(i))),
                    3.0)
            << i;
}

TEST(TestSignal, NoiseIsUniformAndSharedUnlessEachChannelHasItsOwn) {
    for (const bool own : {false, true}) {
        SignalChain chain;
        chain.stage.toneAOn = false;
        chain.stage.noiseOn = true;
        chain.stage.noiseStereo = own;
        chain.stage.levelNoise = 0.0;
        const auto left = chain.next(200);
        double squares = 0.0;
        double products = 0.0;
        for (std::size_t i = 0; i < left.size(); ++i) {
            const double right = chain.delivered[i].sample<std::int32_t>(1);
            if (!own) {
                ASSERT_LE(std::fabs(left[i] - right), 3.0);
            }
            squares += left[i] * left[i] / (fullScale * fullScale);
            products += left[i] * right / (fullScale * fullScale);
        }
        const auto count = static_cast<double>(left.size());
        EXPECT_NEAR(squares / count, 1.0 / 3.0, 0.005); // of a uniform -1 to 1
        EXPECT_NEAR(products / count, own ? 0.0 : 1.0 / 3.0, 0.005);
    }
}

TEST(TestSignal, TakesTheRateAndTheTimesOfItsInput) {
    StageChain<TestSignalStage> chain;
    chain.write(formatOf(sampleType::int16, 1, 32'000), std::vector<std::int16_t>(20'000, 5));
    chain.input.process(chain.input.arenaStore, chain.last, chain.rings[0], 1152);
    commitTo(chain.rings[0], chain.last);
    chain.stage.enable = true;
    chain.pump();
    EXPECT_EQ(chain.last.format, formatOf(sampleType::int32, 2, 32'000));
    EXPECT_EQ(chain.last.timeEnd, 180'000); // 576 frames: 18 ms
    EXPECT_EQ(chain.last.srcEnd, 576 << 16);
    EXPECT_NEAR(chain.delivered.at(3).sample<std::int32_t>(0), minus12 * sineAt(1000.0, 3, 32'000),
                2.0);
    EXPECT_EQ(chain.stage.nextInput, 576);
}

TEST(TestSignal, StandsInThePlaceOfWhatItReplaces) {
    StageChain<TestSignalStage> chain;
    chain.write(formatOf(sampleType::int16, 2, 48000), counting<std::int16_t>(8000, 0));
    chain.stage.enable = true;
    chain.pump();
    chain.pump();
    chain.stage.enable = false;
    chain.pumpAll();
    ASSERT_EQ(chain.delivered.size(), 4000U);
    EXPECT_EQ(chain.delivered[1151].type, sampleType::int32);
    EXPECT_EQ(chain.delivered[1152].sample<std::int16_t>(0), 2 * 1152);
    EXPECT_EQ(chain.delivered[3999].sample<std::int16_t>(0), 7998);
}

TEST(TestSignal, IsCoherentAcrossRewinds) {
    std::mt19937 random{9};
    SignalChain chain;
    chain.stage.freqA = 1234.567;
    chain.stage.freqB = 17'000.1;
    chain.stage.toneBOn = true;
    for (int turn = 0; turn < 200; ++turn) {
        chain.pumpTo(chain.rings[2].end() + 1 + static_cast<int>(random() % 9000));
        const std::int64_t end = chain.rings[2].end();
        chain.rewindTo(std::max<std::int64_t>(end - static_cast<int>(random() % 6000), 0));
    }
    chain.pump();
    for (std::size_t i = 0; i < chain.delivered.size(); ++i) {
        const auto frame = static_cast<double>(i);
        ASSERT_NEAR(chain.delivered[i].sample<std::int32_t>(0),
                    minus12 * (sineAt(1234.567, frame) + sineAt(17'000.1, frame)), 12.0)
            << i;
    }
    EXPECT_GT(chain.delivered.size(), 10'000U);
}

TEST(TestSignal, NothingIsMadeForNothing) {
    FxArena arena;
    FxRing ring;
    FxBlock out;
    TestSignalStage stage;
    EXPECT_FALSE(stage.process(arena, out, ring, 1152));
    stage.enable = true;
    EXPECT_FALSE(stage.process(arena, out, ring, 0));
}

TEST(TestSignal, DisabledItHandsBlocksOn) {
    StageChain<TestSignalStage> chain;
    expectPassesOn(chain);
}

TEST(TestSignal, NeedsNoInputBehindItsPosition) {
    TestSignalStage stage;
    EXPECT_EQ(stage.inputEndFor(0, FxPos(10, 1)), 10);
    EXPECT_EQ(stage.inputStartFor(0, FxPos(10, 1)), 10);
    EXPECT_EQ(stage.alignRewind(-77, FxPos{}), -77);
}

} // namespace
} // namespace velorine::test
