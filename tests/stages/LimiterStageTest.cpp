#include "stages/LimiterStage.h"

#include "config/MemoryStore.h"
#include "config/RegistryNode.h"
#include "foundation/CpuFeatures.h"
#include "tests/stages/StageChain.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <string>

namespace velorine::test {
namespace {

using Chain = StageChain<LimiterStage>;

/// The limiter on a whole programme, in doubles and frame by frame.
class LimiterModel {
public:
    explicit LimiterModel(const std::vector<float>& pairs) {
        for (std::size_t i = 0; i < pairs.size(); i += 2) {
            const double peak = std::max(std::fabs(static_cast<double>(pairs[i])),
                                         std::fabs(static_cast<double>(pairs[i + 1])));
            needs.push_back(peak > 1.0 ? 1.0 / peak : 1.0);
        }
    }

    /// Gain of frame `i`, which follows on the frame that was asked for before.
    double gainAt(std::size_t i) {
        double before = gain * std::pow(2.0, 1.0 / 48.0);
        if (before > 1.0) before = 1.0;
        double steepest = 0.0;
        for (std::size_t ahead = 0; ahead < 32; ++ahead) {
            const double fall = (needs.at(i + ahead) - before) / static_cast<double>(ahead + 1);
            if (fall < steepest) steepest = fall;
        }
        const double held = needs.at(i) < before ? needs.at(i) : before;
        gain = std::max(held + steepest, 0.01);
        return gain;
    }

    double gain = 1.0;

private:
    std::vector<double> needs;
};

/// Loud music as the limiter sees it: tones and noise that swell, up to `peak` times full scale.
std::vector<float> programme(int frames, double peak, unsigned seed) {
    std::mt19937 random{seed};
    std::normal_distribution<double> noise{0.0, 0.15};
    std::vector<float> pairs;
    for (int i = 0; i < frames; ++i) {
        const double swell = 0.5 + 0.5 * std::sin(i * 2e-4);
        const double tone = 0.4 * std::sin(i * 0.031) + 0.3 * std::sin(i * 0.0077);
        for (int channel = 0; channel < 2; ++channel)
            pairs.push_back(
                static_cast<float>(std::clamp(peak * swell * (tone + noise(random)), -peak, peak)));
    }
    return pairs;
}

std::vector<float> constant(int frames, float level) {
    return std::vector<float>(static_cast<std::size_t>(frames) * 2, level);
}

constexpr SampleFormat stereoFloat{sampleType::float32, 2, 48000, fullWidth};

// -- The gain ----------------------------------------------------------------------------------

TEST(LimiterStage, WhatIsBelowFullScaleStaysAsItIs) {
    Chain chain;
    const auto pairs = programme(20'000, 0.99, 1);
    chain.write(stereoFloat, pairs);
    chain.pumpAll();
    ASSERT_EQ(chain.delivered.size(), 20'000U - 32U);
    for (std::size_t i = 0; i < chain.delivered.size(); ++i) {
        ASSERT_EQ(chain.delivered[i].sample<float>(0), pairs[2 * i]);
        ASSERT_EQ(chain.delivered[i].sample<float>(1), pairs[2 * i + 1]);
    }
}

TEST(LimiterStage, ALonePeakIsReachedAlongALine) {
    Chain chain;
    auto pairs = constant(200, 0x1p-10F);
    pairs[64] = 2.0F; // left, frame 32
    chain.write(stereoFloat, pairs);
    chain.pumpAll();
    const auto gainAt = [&](std::size_t i) { // the right channel has no peak
        return static_cast<double>(chain.delivered.at(i).sample<float>(1)) * 1024.0;
    };
    const std::pair<std::size_t, double> rows[] = {{0, 1.0},       {1, 0.984375},  {2, 0.982606},
                                                   {16, 0.892902}, {31, 0.548952}, {32, 0.443063},
                                                   {33, 0.449507}, {80, 0.886126}};
    for (const auto& [frame, gain] : rows)
        EXPECT_NEAR(gainAt(frame), gain, 6e-7) << frame;
    EXPECT_NEAR(static_cast<double>(chain.delivered.at(32).sample<float>(0)), 0.886126, 1.2e-6);
    EXPECT_NEAR(gainAt(80) / gainAt(79), 1.0145453349, 3e-7); // doubles in 48 frames
}

TEST(LimiterStage, TheGainDoesNotGoBelowAHundredth) {
    Chain chain;
    auto pairs = constant(200, 0.0F);
    pairs[80] = 1000.0F;
    chain.write(stereoFloat, pairs);
    chain.pumpAll();
    EXPECT_EQ(chain.delivered.at(40).sample<float>(0), 10.0F);
}

TEST(LimiterStage, LoudProgrammeStaysWithinFullScale) {
    for (const double peak : {4.0, 40.0, 99.9}) {
        Chain chain;
        chain.write(stereoFloat, programme(60'000, peak, 2));
        chain.pumpAll();
        float most = 0.0F;
        for (const DeliveredFrame& frame : chain.delivered)
            for (const int channel : {0, 1})
                most = std::max(most, std::fabs(frame.sample<float>(channel)));
        EXPECT_LE(most, 1.0F) << peak;
        EXPECT_GT(most, 0.9F) << peak;
    }
}

TEST(LimiterStage, TheRecoveryDoesNotFollowTheRate) {
    for (const int rate : {8000, 192'000}) {
        Chain chain;
        auto pairs = constant(200, 0x1p-10F);
        pairs[64] = 2.0F;
        chain.write(formatOf(sampleType::float32, 2, rate), pairs);
        chain.pumpAll();
        EXPECT_EQ(chain.last.format.rate, rate);
        EXPECT_NEAR(static_cast<double>(chain.delivered.at(80).sample<float>(1)) * 1024.0, 0.886126,
                    6e-7);
    }
}

TEST(LimiterStage, AgreesWithDoublesOverAnyBlocks) {
    std::mt19937 random{4};
    const auto pairs = programme(50'000, 4.0, 3);
    Chain chain;
    chain.writeInPieces(stereoFloat, pairs, random);
    chain.pumpAll();
    LimiterModel model{pairs};
    ASSERT_EQ(chain.delivered.size(), 50'000U - 32U);
    for (std::size_t i = 0; i < chain.delivered.size(); ++i) {
        const double gain = model.gainAt(i);
        for (const int channel : {0, 1}) {
            const double expected =
                static_cast<double>(pairs[2 * i + static_cast<std::size_t>(channel)]) * gain;
            ASSERT_NEAR(static_cast<double>(chain.delivered[i].sample<float>(channel)), expected,
                        6e-8 * std::fabs(expected) + 1e-12)
                << i;
        }
    }
}

// -- Blocks and formats ------------------------------------------------------------------------

TEST(LimiterStage, TheLast32FramesStayBehind) {
    Chain chain;
    chain.write(stereoFloat, constant(32, 0.5F));
    chain.pumpAll();
    EXPECT_TRUE(chain.delivered.empty());
    EXPECT_EQ(chain.stage.nextInput, 0);
    chain.write(stereoFloat, constant(1, 0.5F));
    chain.pumpAll();
    EXPECT_EQ(chain.delivered.size(), 1U);
    chain.write(stereoFloat, constant(4000, 0.5F));
    chain.pumpAll();
    EXPECT_EQ(chain.delivered.size(), 4001U);
}

TEST(LimiterStage, BlocksHaveAtMost1152Frames) {
    Chain chain;
    chain.write(stereoFloat, constant(5000, 0.5F));
    chain.pumpAll();
    EXPECT_EQ(chain.blockFrames, (std::vector<int>{1152, 1152, 1152, 1152, 360}));
    EXPECT_EQ(chain.last.timeStart, 959'999); // frame 4608 of 5000 that end at 1'041'666
    EXPECT_EQ(chain.last.timeEnd, 1'034'999); // frame 4968
    EXPECT_EQ(chain.last.srcEnd, 4968 << 16);
    EXPECT_EQ(chain.last.format, stereoFloat);
}

TEST(LimiterStage, MonoGoesToBothAndOfFourChannelsTheFirstTwoStay) {
    Chain mono;
    mono.write(formatOf(sampleType::float32, 1, 44100), std::vector<float>(100, 0.25F));
    mono.pumpAll();
    EXPECT_EQ(mono.last.format, formatOf(sampleType::float32, 2, 44100));
    EXPECT_EQ(mono.delivered.at(50).sample<float>(0), 0.25F);
    EXPECT_EQ(mono.delivered.at(50).sample<float>(1), 0.25F);
    Chain four;
    std::vector<float> frames;
    for (int i = 0; i < 100; ++i)
        frames.insert(frames.end(), {0.1F, 0.2F, 0.3F, 0.4F});
    four.write(formatOf(sampleType::float32, 4, 48000), frames);
    four.pumpAll();
    EXPECT_EQ(four.last.format.channels, 2);
    EXPECT_EQ(four.delivered.at(50).sample<float>(0), 0.1F);
    EXPECT_EQ(four.delivered.at(50).sample<float>(1), 0.2F);
}

TEST(LimiterStage, EveryFormatBecomesFloat) {
    std::mt19937 random{7};
    for (int type = 0; type < 7; ++type) {
        for (const int channels : {1, 2}) {
            Chain chain;
            chain.writeInPieces(formatOf(type, channels, 32'000),
                                noiseBytes(type, 8000 * channels, random), random);
            chain.pumpAll();
            ASSERT_EQ(chain.delivered.size(), 8000U - 32U);
            for (const DeliveredFrame& frame : chain.delivered) {
                ASSERT_EQ(std::tuple(frame.type, frame.channels, frame.rate),
                          std::tuple(sampleType::float32, 2, 32'000));
                // 28-bit samples have 8 bits of headroom: further than a hundredth goes
                if (type != sampleType::int28) {
                    ASSERT_LE(std::fabs(frame.sample<float>(0)), 1.0F);
                }
            }
        }
    }
}

// -- In the chain ------------------------------------------------------------------------------

TEST(LimiterStage, NothingIsMadeForNothing) {
    FxArena arena;
    FxRing ring;
    FxBlock out;
    LimiterStage stage;
    EXPECT_FALSE(stage.process(arena, out, ring, 1152));
    appendTo(ring, countingBlock(arena, 10'000, 0, 0, 100));
    EXPECT_FALSE(stage.process(arena, out, ring, 0));
}

TEST(LimiterStage, DisabledItHandsBlocksOn) {
    Chain chain;
    chain.stage.enable = false;
    expectPassesOn(chain);
}

TEST(LimiterStage, ItsGainSurvivesARewind) {
    std::mt19937 random{5};
    constexpr int frames = 60'000;
    const auto pairs = programme(frames, 4.0, 6);
    Chain chain;
    chain.writeInPieces(stereoFloat, pairs, random);
    LimiterModel model{pairs};
    std::vector<double> gains;
    const auto followTo = [&](std::int64_t end) {
        while (static_cast<std::int64_t>(gains.size()) < end)
            gains.push_back(model.gainAt(gains.size()));
    };
    for (int turn = 1; turn <= 20; ++turn) {
        chain.pumpTo(frames * turn / 21);
        followTo(chain.rings[1].end());
        chain.rewindTo(chain.rings[2].end() - static_cast<int>(random() % 5000));
        gains.resize(static_cast<std::size_t>(chain.rings[1].end()));
    }
    chain.pumpAll();
    followTo(chain.rings[1].end());
    ASSERT_EQ(chain.delivered.size(), static_cast<std::size_t>(frames - 32));
    for (std::size_t i = 0; i < gains.size(); ++i)
        ASSERT_NEAR(static_cast<double>(chain.delivered[i].sample<float>(0)),
                    static_cast<double>(pairs[2 * i]) * gains[i], 2.5e-7)
            << i;
}

TEST(LimiterStage, TheSettingComesFromItsSection) {
    MemoryStore store;
    LimiterStage saved;
    saved.enable = false;
    RegistryNode writing{store, RegistryNode::write};
    saved.exchangeSettings(writing);
    RegistryNode reading{store, RegistryNode::read};
    LimiterStage loaded;
    EXPECT_TRUE(loaded.enable);
    loaded.exchangeSettings(reading);
    EXPECT_FALSE(loaded.enable);
    bool on = true;
    reading.exchangeBool("Limiter", "enable", on);
    EXPECT_FALSE(on);
}

// -- The loops ---------------------------------------------------------------------------------

TEST(LimiterKernels, AllYieldTheSameBits) {
    if (!covers(cpuFeatures(), cpuFeature::avx2Fma)) GTEST_SKIP() << "no avx2 here";
    std::mt19937 random{8};
    for (int turn = 0; turn < 400; ++turn) {
        const int frames = 1 + static_cast<int>(random() % 1152);
        const double peak = std::pow(10.0, static_cast<double>(random() % 300) / 100.0 - 0.5);
        auto pairs = programme(frames + limiterLook + 1, peak, static_cast<unsigned>(turn));
        if (turn % 3 == 0)
            for (float& sample : pairs) // levels in few steps: many lines are equally steep
                sample = std::round(sample * 4.0F) / 4.0F;
        if (turn % 5 == 0) {
            pairs[random() % pairs.size()] = INFINITY;
            pairs[random() % pairs.size()] = NAN;
        }
        const float* const from = pairs.data() + turn % 2;
        const double start = turn % 7 == 0 ? 1.0 : 0.01 + static_cast<double>(random() % 99) / 100;
        const auto limited = [&](const LimiterKernels& kernels) {
            std::vector<double> required(static_cast<std::size_t>(frames + limiterLook));
            std::vector<double> gains(static_cast<std::size_t>(frames) + 1, 77.0);
            std::vector<float> out(static_cast<std::size_t>(frames) * 2 + 1, 77.0F);
            kernels.require(from, frames + limiterLook, required.data());
            LimiterRun run{required.data(), frames, std::exp2(1.0 / 48.0), start, gains.data()};
            kernels.follow(run);
            kernels.apply(from, gains.data(), frames, out.data());
            EXPECT_EQ(gains.back(), 77.0);
            EXPECT_EQ(out.back(), 77.0F);
            EXPECT_EQ(run.gain, gains[static_cast<std::size_t>(frames) - 1]);
            return std::tuple{required, gains, out};
        };
        const auto [required, gains, out] = limited(plainLimiterKernels);
        const auto [fastRequired, fastGains, fastOut] = limited(avx2LimiterKernels);
        ASSERT_EQ(fastRequired, required) << turn;
        ASSERT_EQ(fastGains, gains) << turn;
        ASSERT_EQ(std::memcmp(fastOut.data(), out.data(), out.size() * sizeof(float)), 0) << turn;
    }
}

TEST(LimiterKernels, TheBestThatTheProcessorHasIsChosen) {
    EXPECT_EQ(&limiterKernels(0), &plainLimiterKernels);
    EXPECT_EQ(&limiterKernels(cpuFeature::avx2Fma), &avx2LimiterKernels);
}

} // namespace
} // namespace velorine::test
