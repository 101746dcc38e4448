#include "stages/PeakEqStage.h"

#include "tests/stages/StageChain.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <utility>

namespace velorine::test {
namespace {

using Chain = StageChain<PeakEqStage>;

constexpr double pi = std::numbers::pi;
constexpr SampleFormat stereoFloat{sampleType::float32, 2, 48000, fullWidth};
constexpr PeakFilterRow row{4055.0F, 17.4F, -10.3F, true};

/// The filter in doubles throughout, one channel.
class PeakModel {
public:
    explicit PeakModel(double rate) {
        const double frequency = std::min(4055.0, rate / 2.0);
        const double root = std::pow(10.0, 10.3 / 40.0); // of the lift, 10.3 dB
        const double w = 2.0 * pi * frequency / rate;
        const double alpha = std::sin(w) * root / (2.0 * 17.4);
        const double norm = 1.0 / (1.0 + alpha / root);
        b = {(1.0 + alpha * root) * norm, -2.0 * std::cos(w) * norm, (1.0 - alpha * root) * norm};
        a = {2.0 * std::cos(w) * norm, (alpha / root - 1.0) * norm};
    }
    double next(float sample) {
        const auto x = static_cast<double>(sample);
        const double y = b[0] * x + b[1] * x1 + b[2] * x2 + a[0] * y1 + a[1] * y2;
        x2 = std::exchange(x1, x);
        y2 = std::exchange(y1, y);
        return y;
    }
    /// As another rate has it, with what this one remembers.
    PeakModel at(double rate) const {
        PeakModel other{rate};
        other.x1 = x1;
        other.x2 = x2;
        other.y1 = y1;
        other.y2 = y2;
        return other;
    }

private:
    std::array<double, 3> b{};
    std::array<double, 2> a{};
    double x1 = 0.0;
    double x2 = 0.0;
    double y1 = 0.0;
    double y2 = 0.0;
};

std::vector<float> noisePairs(int frames, unsigned seed) {
    std::mt19937 random{seed};
    std::uniform_real_distribution<float> sample{-0.5F, 0.5F};
    std::vector<float> pairs(static_cast<std::size_t>(frames) * 2);
    for (float& x : pairs)
        x = sample(random);
    return pairs;
}

// -- The filter --------------------------------------------------------------------------------

TEST(PeakFilter, HasTheseCoefficients) {
    const BiquadCoefs at48 = designPeak(row, 48000);
    EXPECT_NEAR(at48.c0, 1.03259619, 1e-7);
    EXPECT_NEAR(at48.c1, -1.70007616, 2e-7);
    EXPECT_NEAR(at48.c2, 0.93872773, 1e-7);
    EXPECT_NEAR(at48.c3, 1.70007616, 2e-7);
    EXPECT_NEAR(at48.c4, -0.97132393, 1e-7);
    const BiquadCoefs at44 = designPeak(row, 44100);
    EXPECT_NEAR(at44.c0, 1.03512633, 1e-7);
    EXPECT_NEAR(at44.c1, -1.64951201, 2e-7);
    EXPECT_NEAR(at44.c2, 0.93397174, 1e-7);
    EXPECT_NEAR(at44.c3, 1.64951201, 2e-7);
    EXPECT_NEAR(at44.c4, -0.96909807, 1e-7);
    EXPECT_TRUE(at48.active);
}

TEST(PeakFilter, ARowThatIsNotActiveYieldsNoSection) {
    EXPECT_FALSE(designPeak({1000.0F, 1.0F, 6.0F, false}, 48000).active);
}

TEST(PeakFilter, StandsAtTheNyquistFrequencyWhereTheRateIsLow) {
    // There the filter is (1 + z)^2 / (1 + z)^2.
    const BiquadCoefs coefs = designPeak(row, 8000);
    EXPECT_EQ(coefs.c0, 1.0F);
    EXPECT_EQ(coefs.c1, 2.0F);
    EXPECT_EQ(coefs.c2, 1.0F);
    EXPECT_EQ(coefs.c3, -2.0F);
    EXPECT_EQ(coefs.c4, -1.0F);
    EXPECT_GT(designPeak(row, 8112).c0, 1.0F); // half of it lies just above 4055 Hz
}

TEST(PeakFilter, WhatDiesAwayBecomesSilence) {
    BiquadState states[2];
    std::vector<float> pairs(2 * 1152, 0.0F);
    pairs[0] = pairs[1] = 1.0F;
    const BiquadCoefs coefs = designPeak(row, 48000);
    for (int block = 0; block < 30; ++block) {
        filterPairs(coefs, states, pairs.data(), 1152);
        for (const float x : pairs)
            ASSERT_TRUE(x == 0.0F || std::fpclassify(x) == FP_NORMAL) << block;
        std::ranges::fill(pairs, 0.0F);
    }
    EXPECT_EQ(states[0].y1, 0.0F);
    EXPECT_EQ(states[1].y2, 0.0F);
}

// -- The stage ---------------------------------------------------------------------------------

TEST(PeakEqStage, LiftsASineAt4055HzBy10Point3Decibels) {
    const struct {
        double hz, db, tolerance;
    } rows[] = {{4055.0, 10.3, 0.002}, {1000.0, 0.0, 0.02}, {16'000.0, 0.0, 0.02}};
    for (const auto& [hz, db, tolerance] : rows) {
        Chain chain;
        std::vector<float> pairs;
        for (int i = 0; i < 48000; ++i) {
            const auto x = static_cast<float>(0.1 * std::sin(2.0 * pi * hz / 48000.0 * i));
            pairs.insert(pairs.end(), {x, -x});
        }
        chain.write(stereoFloat, pairs);
        chain.pumpAll();
        for (const int channel : {0, 1}) {
            double energy = 0.0;
            for (std::size_t i = 24'000; i < 48'000; ++i) {
                const auto x = static_cast<double>(chain.delivered.at(i).sample<float>(channel));
                energy += x * x;
            }
            EXPECT_NEAR(10.0 * std::log10(energy / 24'000 / 0.005), db, tolerance) << hz;
        }
    }
}

TEST(PeakEqStage, AgreesWithDoublesOverAnyBlocks) {
    std::mt19937 random{1};
    for (const int rate : {44100, 48000, 96000}) {
        Chain chain;
        const auto pairs = noisePairs(60'000, 2);
        chain.writeInPieces(formatOf(sampleType::float32, 2, rate), pairs, random);
        chain.pumpAll();
        ASSERT_EQ(chain.delivered.size(), 60'000U);
        PeakModel left{static_cast<double>(rate)};
        PeakModel right{static_cast<double>(rate)};
        for (std::size_t i = 0; i < 60'000; ++i) {
            // Roundings of singles, which the resonance carries on.
            ASSERT_NEAR(chain.delivered[i].sample<float>(0), left.next(pairs[2 * i]), 2e-5) << i;
            ASSERT_NEAR(chain.delivered[i].sample<float>(1), right.next(pairs[2 * i + 1]), 2e-5)
                << i;
        }
    }
}

TEST(PeakEqStage, AChangeOfRateKeepsWhatTheFilterRemembers) {
    Chain chain;
    const auto pairs = noisePairs(2304, 3);
    chain.write(stereoFloat, std::vector<float>(pairs.begin(), pairs.begin() + 2304));
    chain.write(formatOf(sampleType::float32, 2, 44100),
                std::vector<float>(pairs.begin() + 2304, pairs.end()));
    chain.pumpAll();
    ASSERT_EQ(chain.delivered.size(), 2304U);
    EXPECT_EQ(chain.delivered[1151].rate, 48000);
    EXPECT_EQ(chain.delivered[1152].rate, 44100);
    PeakModel model{48000.0};
    for (std::size_t i = 0; i < 2304; ++i) {
        if (i == 1152) model = model.at(44100.0);
        ASSERT_NEAR(chain.delivered[i].sample<float>(0), model.next(pairs[2 * i]), 2e-5) << i;
    }
}

TEST(PeakEqStage, ItsStatesSurviveARewind) {
    std::mt19937 random{4};
    constexpr int frames = 60'000;
    const auto pairs = noisePairs(frames, 5);
    Chain chain;
    chain.writeInPieces(stereoFloat, pairs, random);
    PeakModel model{48000.0};
    std::vector<double> expected;
    const auto followTo = [&](std::int64_t end) {
        while (static_cast<std::int64_t>(expected.size()) < end)
            expected.push_back(model.next(pairs[2 * expected.size()]));
    };
    for (int turn = 1; turn <= 20; ++turn) {
        chain.pumpTo(frames * turn / 21);
        followTo(chain.rings[1].end());
        chain.rewindTo(chain.rings[2].end() - static_cast<int>(random() % 5000));
        expected.resize(static_cast<std::size_t>(chain.rings[1].end()));
    }
    chain.pumpAll();
    followTo(frames);
    ASSERT_EQ(chain.delivered.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        ASSERT_NEAR(chain.delivered[i].sample<float>(0), expected[i], 2e-5) << i;
}

TEST(PeakEqStage, EveryFormatBecomesStereoFloat) {
    std::mt19937 random{6};
    for (int type = 0; type < 7; ++type) {
        for (const int channels : {1, 2, 4}) {
            Chain chain;
            chain.writeInPieces(formatOf(type, channels, 32'000),
                                noiseBytes(type, 5000 * channels, random), random);
            chain.pumpAll();
            ASSERT_EQ(chain.delivered.size(), 5000U);
            for (const DeliveredFrame& frame : chain.delivered)
                ASSERT_EQ(std::tuple(frame.type, frame.channels, frame.rate),
                          std::tuple(sampleType::float32, 2, 32'000));
            if (channels == 1) {
                ASSERT_EQ(chain.channel<float>(0), chain.channel<float>(1));
            }
        }
    }
}

TEST(PeakEqStage, BlocksHaveAtMost1152Frames) {
    Chain chain;
    chain.write(stereoFloat, noisePairs(3000, 7));
    chain.pumpAll();
    EXPECT_EQ(chain.blockFrames, (std::vector<int>{1152, 1152, 696}));
    EXPECT_EQ(chain.last.timeStart, 480'000); // 48 ms
    EXPECT_EQ(chain.last.timeEnd, 625'000);
    EXPECT_EQ(chain.last.srcEnd, 3000 << 16);
    EXPECT_EQ(chain.stage.nextInput, 3000);
}

TEST(PeakEqStage, TheSpareGainChangesNothing) {
    Chain plain;
    Chain other;
    other.stage.gain = 0.25;
    for (Chain* const chain : {&plain, &other}) {
        chain->write(stereoFloat, noisePairs(3000, 8));
        chain->pumpAll();
    }
    EXPECT_TRUE(plain.delivered == other.delivered);
}

TEST(PeakEqStage, NothingIsMadeForNothing) {
    FxArena arena;
    FxRing ring;
    FxBlock out;
    PeakEqStage stage;
    EXPECT_FALSE(stage.process(arena, out, ring, 1152));
    appendTo(ring, countingBlock(arena, 10'000, 0, 0, 100));
    EXPECT_FALSE(stage.process(arena, out, ring, 0));
}

TEST(PeakEqStage, DisabledItHandsBlocksOn) {
    Chain chain;
    chain.stage.enable = false;
    expectPassesOn(chain);
}

} // namespace
} // namespace velorine::test
