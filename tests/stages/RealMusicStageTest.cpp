#include "stages/LimiterStage.h"
#include "stages/MixerStage.h"
#include "stages/PeakEqStage.h"
#include "stages/SpliceStage.h"
#include "tests/player/AudioFiles.h"
#include "tests/stages/StageChain.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

// The stages outside the chain over real music.

namespace velorine::test {
namespace {

class RealMusicStages : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        const Decoded decoded = decode(VELORINE_MUSIC "/" + std::string{GetParam()}, 20 * 48000);
        ASSERT_EQ(decoded.channels, 2);
        rate = decoded.rate;
        samples = decoded.samples;
        ASSERT_GT(samples.size(), 2U * 5 * 44100);
    }

    /// The music, `gain` times as loud as it reaches full scale.
    std::vector<float> floats(double gain) const {
        double peak = 0.0;
        for (const double x : samples)
            peak = std::max(peak, std::fabs(x));
        std::vector<float> pairs;
        for (const double x : samples)
            pairs.push_back(static_cast<float>(x / peak * gain));
        return pairs;
    }
    std::vector<std::int16_t> words() const {
        std::vector<std::int16_t> pairs;
        for (const double x : samples)
            pairs.push_back(
                static_cast<std::int16_t>(std::lrint(std::clamp(x, -1.0, 1.0) * 32767)));
        return pairs;
    }

    std::int64_t frames() const { return std::ssize(samples) / 2; }

    int rate = 0;
    std::vector<double> samples;
};

TEST_P(RealMusicStages, TheLimiterHoldsFullScaleAt12DecibelsOver) {
    StageChain<LimiterStage> chain;
    std::mt19937 random{1};
    const auto pairs = floats(std::pow(10.0, 0.6));
    chain.writeInPieces(formatOf(sampleType::float32, 2, rate), pairs, random);
    chain.pumpAll();
    ASSERT_EQ(std::ssize(chain.delivered), frames() - 32);
    int limited = 0;
    for (std::size_t i = 0; i < chain.delivered.size(); ++i) {
        for (const int channel : {0, 1}) {
            const float in = pairs[2 * i + static_cast<std::size_t>(channel)];
            const float out = chain.delivered[i].sample<float>(channel);
            ASSERT_LE(std::fabs(out), 1.0F) << i;
            ASSERT_LE(std::fabs(out), std::fabs(in)) << i;
            limited += out != in ? 1 : 0;
        }
    }
    EXPECT_GT(limited, 1000);
}

TEST_P(RealMusicStages, MusicThatFitsPassesTheLimiterAsItIs) {
    StageChain<LimiterStage> chain;
    const auto pairs = floats(0.999);
    chain.write(formatOf(sampleType::float32, 2, rate), pairs);
    chain.pumpAll();
    for (std::size_t i = 0; i < chain.delivered.size(); ++i)
        for (const int channel : {0, 1})
            ASSERT_EQ(chain.delivered[i].sample<float>(channel),
                      pairs[2 * i + static_cast<std::size_t>(channel)]);
}

TEST_P(RealMusicStages, TheMixerRepeatsBitForBit) {
    std::mt19937 random{2};
    const SampleFormat format = formatOf(sampleType::int16, 2, rate);
    StageChain<MixerStage> straight;
    StageChain<MixerStage> chain;
    straight.stage.enable = chain.stage.enable = true;
    straight.write(format, words());
    straight.pumpAll();
    chain.writeInPieces(format, words(), random);
    chain.pumpWithRewinds(random, 30, 48'000, frames());
    EXPECT_TRUE(chain.delivered == straight.delivered);
}

TEST_P(RealMusicStages, TheSpliceRepeatsBitForBitAndKeepsTheLevel) {
    std::mt19937 random{3};
    const SampleFormat format = formatOf(sampleType::int16, 2, rate);
    for (const double ratio : {0.5, 0.9, 1.1, 2.0}) {
        StageChain<SpliceStage> straight;
        StageChain<SpliceStage> chain;
        straight.stage.ratio = chain.stage.ratio = ratio;
        straight.write(format, words());
        straight.pumpAll();
        chain.writeInPieces(format, words(), random);
        chain.pumpWithRewinds(random, 30, 48'000,
                              static_cast<std::int64_t>(static_cast<double>(frames()) / ratio));
        EXPECT_TRUE(chain.delivered == straight.delivered) << ratio;

        const auto power = [](const auto& values) {
            double sum = 0.0;
            for (const std::int16_t x : values)
                sum += static_cast<double>(x) * x;
            return sum / static_cast<double>(values.size());
        };
        std::vector<std::int16_t> left;
        const auto in = words();
        for (std::size_t i = 0; i < in.size(); i += 2)
            left.push_back(in[i]);
        EXPECT_NEAR(10.0 * std::log10(power(chain.channel<std::int16_t>(0)) / power(left)), 0.0,
                    2.0)
            << ratio;
    }
}

TEST_P(RealMusicStages, TheEqualiserOnlyLiftsItsBand) {
    StageChain<PeakEqStage> chain;
    const auto pairs = floats(0.3);
    chain.write(formatOf(sampleType::float32, 2, rate), pairs);
    chain.pumpAll();
    // What it adds is the music in a narrow band: little of the whole.
    double added = 0.0;
    double whole = 0.0;
    for (std::size_t i = 0; i < chain.delivered.size(); ++i) {
        const auto in = static_cast<double>(pairs[2 * i]);
        const auto out = static_cast<double>(chain.delivered[i].sample<float>(0));
        added += (out - in) * (out - in);
        whole += in * in;
    }
    EXPECT_GT(added, 0.0);
    EXPECT_LT(added / whole, 0.05);
}

INSTANTIATE_TEST_SUITE_P(Songs, RealMusicStages, testing::Values("brandenburg.ogg", "march.ogg"),
                         [](const auto& song) {
                             return std::string{song.param}.substr(
                                 0, std::string{song.param}.find('.'));
                         });

} // namespace
} // namespace velorine::test
