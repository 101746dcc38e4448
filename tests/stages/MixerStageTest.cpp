#include "stages/MixerStage.h"

#include "config/MemoryStore.h"
#include "config/RegistryNode.h"
#include "tests/stages/StageChain.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace velorine::test {
namespace {

using Chain = StageChain<MixerStage>;

/// A mixer that is on, with the pairs `delayFrames` apart at 48 kHz.
struct MixerChain : Chain {
    explicit MixerChain(int delayFrames = 0) {
        stage.enable = true;
        stage.antidelay = delayFrames / 48000.0;
    }
};

/// The four samples of a frame.
template <typename Sample>
std::array<Sample, 4> quad(const DeliveredFrame& frame) {
    return {frame.sample<Sample>(0), frame.sample<Sample>(1), frame.sample<Sample>(2),
            frame.sample<Sample>(3)};
}

template <typename Sample>
using Quad = std::array<Sample, 4>;

// -- What a frame becomes ----------------------------------------------------------------------

TEST(MixerStage, AMonoStreamWithoutDelayIsInAllFourChannels) {
    MixerChain chain;
    chain.write(formatOf(sampleType::int16, 1, 48000), counting<std::int16_t>(3000, -7));
    chain.pumpAll();
    ASSERT_EQ(chain.delivered.size(), 3000U);
    for (int i = 0; i < 3000; ++i) {
        const auto x = static_cast<std::int16_t>(i - 7);
        ASSERT_EQ(quad<std::int16_t>(chain.delivered[static_cast<std::size_t>(i)]),
                  (Quad<std::int16_t>{x, x, x, x}));
    }
    EXPECT_EQ(chain.last.format, formatOf(sampleType::int16, 4, 48000));
}

TEST(MixerStage, WithoutDelayTheRearOfAStereoStreamIsItsMean) {
    MixerChain chain;
    chain.write(formatOf(sampleType::int16, 2, 48000), std::vector<std::int16_t>{7, -10, 1, 2});
    chain.pumpAll();
    EXPECT_EQ(quad<std::int16_t>(chain.delivered.at(0)), (Quad<std::int16_t>{7, -10, -2, -2}));
    EXPECT_EQ(quad<std::int16_t>(chain.delivered.at(1)), (Quad<std::int16_t>{1, 2, 1, 1}));
}

TEST(MixerStage, TheRearRunsAheadOfTheFront) {
    MixerChain chain{100};
    chain.write(formatOf(sampleType::int32, 1, 48000), counting<std::int32_t>(5000, 0));
    chain.pumpAll();
    ASSERT_EQ(chain.delivered.size(), 4900U);
    for (int i = 0; i < 4900; ++i)
        ASSERT_EQ(quad<std::int32_t>(chain.delivered[static_cast<std::size_t>(i)]),
                  (Quad<std::int32_t>{i, i, i + 100, i + 100}));
}

TEST(MixerStage, AnInvertedIntegerIsItsComplement) {
    MixerChain chain;
    chain.stage.invertrear = true;
    chain.write(formatOf(sampleType::int16, 1, 48000), std::vector<std::int16_t>{-32768, 0, 5});
    chain.pumpAll();
    EXPECT_EQ(quad<std::int16_t>(chain.delivered.at(0)),
              (Quad<std::int16_t>{-32768, -32768, 32767, 32767}));
    EXPECT_EQ(quad<std::int16_t>(chain.delivered.at(1)), (Quad<std::int16_t>{0, 0, -1, -1}));
    EXPECT_EQ(quad<std::int16_t>(chain.delivered.at(2)), (Quad<std::int16_t>{5, 5, -6, -6}));
}

TEST(MixerStage, InvertsBeforeItTakesTheMean) {
    MixerChain chain;
    chain.stage.invertrear = true;
    chain.write(formatOf(sampleType::int32, 2, 48000), std::vector<std::int32_t>{3, 0});
    chain.pumpAll();
    // (-4 + -1) / 2, rounded down; the complement of the mean would be -2
    EXPECT_EQ(quad<std::int32_t>(chain.delivered.at(0)), (Quad<std::int32_t>{3, 0, -3, -3}));
}

TEST(MixerStage, AMutedRearIsZeroAlsoWhenInverted) {
    for (const int channels : {1, 2}) {
        MixerChain chain;
        chain.stage.rearon = false;
        chain.stage.invertrear = true;
        chain.write(formatOf(sampleType::int16, channels, 48000),
                    std::vector<std::int16_t>{100, 100});
        chain.pumpAll();
        EXPECT_EQ(quad<std::int16_t>(chain.delivered.at(0)), (Quad<std::int16_t>{100, 100, 0, 0}));
    }
}

TEST(MixerStage, AMutedFrontStillHasItsChannels) {
    for (const int channels : {1, 2}) {
        MixerChain chain;
        chain.stage.fronton = false;
        chain.write(formatOf(sampleType::int16, channels, 48000),
                    std::vector<std::int16_t>{100, 100});
        chain.pumpAll();
        EXPECT_EQ(chain.delivered.at(0).channels, 4);
        EXPECT_EQ(quad<std::int16_t>(chain.delivered.at(0)), (Quad<std::int16_t>{0, 0, 100, 100}));
    }
}

TEST(MixerStage, FullScaleMeansDoNotOverflow) {
    constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();
    constexpr std::int32_t least = std::numeric_limits<std::int32_t>::min();
    for (const int type : {sampleType::int28, sampleType::int32}) {
        MixerChain chain;
        chain.write(formatOf(type, 2, 48000), std::vector<std::int32_t>{most, most, least, least});
        chain.pumpAll();
        EXPECT_EQ(quad<std::int32_t>(chain.delivered.at(0)),
                  (Quad<std::int32_t>{most, most, most, most}));
        EXPECT_EQ(quad<std::int32_t>(chain.delivered.at(1)),
                  (Quad<std::int32_t>{least, least, least, least}));
    }
}

TEST(MixerStage, FloatsAreNegatedAndAveraged) {
    MixerChain chain;
    chain.stage.invertrear = true;
    chain.write(formatOf(sampleType::float32, 2, 48000),
                std::vector<float>{0.5F, 0.25F, 3e38F, 3e38F});
    chain.pumpAll();
    EXPECT_EQ(quad<float>(chain.delivered.at(0)), (Quad<float>{0.5F, 0.25F, -0.375F, -0.375F}));
    EXPECT_EQ(quad<float>(chain.delivered.at(1)), (Quad<float>{3e38F, 3e38F, -3e38F, -3e38F}));
}

TEST(MixerStage, SamplesOf24BitsAreMixedAsNumbers) {
    const auto bytesOf = [](std::int32_t x) {
        return std::array{static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(x >> 8),
                          static_cast<std::uint8_t>(x >> 16)};
    };
    for (const bool inverted : {false, true}) {
        MixerChain chain;
        chain.stage.invertrear = inverted;
        const std::int32_t pairs[][2] = {
            {0x123456, 0x0F0001}, {-8388608, -8388608}, {8388607, 8388607}, {-1, 0}, {-5, 8388607}};
        std::vector<std::uint8_t> samples;
        for (const auto& pair : pairs)
            for (const std::int32_t x : pair)
                for (const std::uint8_t byte : bytesOf(x))
                    samples.push_back(byte);
        chain.write(formatOf(sampleType::int24, 2, 48000), samples);
        chain.pumpAll();
        for (std::size_t i = 0; i < std::size(pairs); ++i) {
            const std::int32_t a = inverted ? -pairs[i][0] - 1 : pairs[i][0];
            const std::int32_t b = inverted ? -pairs[i][1] - 1 : pairs[i][1];
            const auto mean = static_cast<std::int32_t>(std::floor((a + b) / 2.0));
            std::vector<std::uint8_t> expected;
            for (const std::int32_t x : {pairs[i][0], pairs[i][1], mean, mean})
                for (const std::uint8_t byte : bytesOf(x))
                    expected.push_back(byte);
            EXPECT_EQ(std::memcmp(chain.delivered.at(i).bytes.data(), expected.data(), 12), 0)
                << i << (inverted ? ", inverted" : "");
        }
    }
}

TEST(MixerStage, SamplesThatItCanNotMixKeepTheirChannels) {
    std::mt19937 random{1};
    for (const auto& [type, channels] : {std::pair{sampleType::int8, 2},
                                         {sampleType::float64, 2},
                                         {sampleType::float64, 1},
                                         {sampleType::int16, 4},
                                         {sampleType::float32, 6}}) {
        MixerChain chain{50};
        const SampleFormat format = formatOf(type, channels, 48000);
        const auto bytes = noiseBytes(type, 2000 * channels, random);
        chain.write(format, bytes);
        chain.pumpAll();
        ASSERT_EQ(chain.delivered.size(), 1950U);
        EXPECT_EQ(chain.last.format, format);
        const auto frameBytes = static_cast<std::size_t>(bytesPerFrame(format));
        for (std::size_t i = 0; i < chain.delivered.size(); ++i)
            ASSERT_EQ(std::memcmp(chain.delivered[i].bytes.data(), bytes.data() + i * frameBytes,
                                  frameBytes),
                      0);
    }
}

// -- The delay ---------------------------------------------------------------------------------

TEST(MixerStage, TheFirstFrameNeedsTheDelayInInput) {
    for (const auto& [rate, delay] : {std::pair{44100, 2205}, {48000, 2400}}) {
        Chain chain;
        chain.stage.enable = true;
        const SampleFormat format = formatOf(sampleType::int16, 1, rate);
        chain.write(format, counting<std::int16_t>(delay, 0));
        chain.pumpAll();
        EXPECT_EQ(chain.rings[1].count(), 0) << rate;
        EXPECT_EQ(chain.stage.nextInput, 0);
        chain.write(format, std::vector<std::int16_t>{7777});
        chain.pumpAll();
        ASSERT_EQ(chain.delivered.size(), 1U);
        EXPECT_EQ(quad<std::int16_t>(chain.delivered[0]), (Quad<std::int16_t>{0, 0, 7777, 7777}));
        EXPECT_EQ(chain.stage.inputEndFor(0, FxPos::fromFrame(10)), 10 + delay);
    }
}

TEST(MixerStage, DisabledItNeedsNoMoreThanItPlays) {
    MixerStage stage;
    EXPECT_EQ(stage.inputEndFor(0, FxPos(10, 1)), 11);
    EXPECT_EQ(stage.inputStartFor(0, FxPos(10, 1)), 10);
}

TEST(MixerStage, ADelayThatIsNoTimeCountsAsNone) {
    for (const double seconds : {-0.1, static_cast<double>(NAN)}) {
        MixerChain chain;
        chain.stage.antidelay = seconds;
        chain.write(formatOf(sampleType::int16, 1, 48000), std::vector<std::int16_t>{1, 2, 3});
        chain.pumpAll();
        EXPECT_EQ(chain.delivered.size(), 3U);
    }
    MixerChain chain;
    chain.stage.antidelay = 1e300;
    chain.write(formatOf(sampleType::int16, 1, 48000), std::vector<std::int16_t>{1, 2, 3});
    chain.pumpAll();
    EXPECT_TRUE(chain.delivered.empty());
}

TEST(MixerStage, AChangeOfTheDelayShiftsThePairsAtOnce) {
    MixerChain chain{100};
    chain.write(formatOf(sampleType::int32, 1, 48000), counting<std::int32_t>(3000, 0));
    chain.pumpTo(1);
    chain.stage.antidelay = 200 / 48000.0;
    chain.pumpAll();
    EXPECT_EQ(quad<std::int32_t>(chain.delivered.at(1151)),
              (Quad<std::int32_t>{1151, 1151, 1251, 1251}));
    EXPECT_EQ(quad<std::int32_t>(chain.delivered.at(1152)),
              (Quad<std::int32_t>{1152, 1152, 1352, 1352}));
}

TEST(MixerStage, WhereTheFormatChangesBetweenThePairsTheFrontGoesAlone) {
    MixerChain chain{1000};
    chain.write(formatOf(sampleType::int32, 2, 48000), std::vector<std::int32_t>(4000, 5));
    chain.write(formatOf(sampleType::int16, 2, 48000), std::vector<std::int16_t>(8000, 9));
    chain.pumpAll();
    ASSERT_EQ(chain.delivered.size(), 5000U);
    // 1000 frames before the second block is there; the next 1152 have its format ahead of them
    for (const auto& [frame, type, channels] : {std::tuple{0, sampleType::int32, 4},
                                                {999, sampleType::int32, 4},
                                                {1000, sampleType::int32, 2},
                                                {2151, sampleType::int32, 2},
                                                {2152, sampleType::int16, 4}}) {
        EXPECT_EQ(chain.delivered.at(static_cast<std::size_t>(frame)).type, type) << frame;
        EXPECT_EQ(chain.delivered.at(static_cast<std::size_t>(frame)).channels, channels) << frame;
    }
}

TEST(MixerStage, BlocksCarryTheFrontsTimes) {
    MixerChain chain{480};
    chain.write(formatOf(sampleType::int16, 2, 48000), std::vector<std::int16_t>(2 * 4800, 1));
    chain.pumpTo(1);
    EXPECT_EQ(chain.last.frames(), 1152);
    EXPECT_EQ(chain.last.timeStart, 0);
    EXPECT_EQ(chain.last.timeEnd, 240'000); // 24 ms
    EXPECT_EQ(chain.last.srcEnd, 1152 << 16);
    EXPECT_EQ(chain.stage.nextInput, 1152);
}

// -- In the chain ------------------------------------------------------------------------------

TEST(MixerStage, NothingIsMadeForNothing) {
    FxArena arena;
    FxRing ring;
    FxBlock out;
    MixerStage stage;
    for (const bool on : {false, true}) {
        stage.enable = on;
        EXPECT_FALSE(stage.process(arena, out, ring, 1152));
    }
    appendTo(ring, countingBlock(arena, 10'000, 0, 0, 100));
    EXPECT_FALSE(stage.process(arena, out, ring, 0));
}

TEST(MixerStage, DisabledItHandsBlocksOn) {
    Chain chain;
    expectPassesOn(chain);
}

TEST(MixerStage, RepeatsBitForBitAfterRewinds) {
    std::mt19937 random{11};
    for (int type = 0; type < 7; ++type) {
        for (const int channels : {1, 2}) {
            const auto bytes = noiseBytes(type, 60'000 * channels, random);
            MixerChain straight{1900};
            straight.stage.invertrear = true;
            straight.write(formatOf(type, channels, 48000), bytes);
            straight.pumpAll();
            MixerChain chain{1900};
            chain.stage.invertrear = true;
            chain.writeInPieces(formatOf(type, channels, 48000), bytes, random);
            chain.pumpWithRewinds(random, 12, 9000, 58'100);
            ASSERT_EQ(chain.delivered.size(), 58'100U);
            ASSERT_TRUE(chain.delivered == straight.delivered) << type << ", " << channels;
        }
    }
}

TEST(MixerStage, SettingsComeFromTheirSection) {
    MemoryStore store;
    MixerStage saved;
    saved.enable = true;
    saved.antidelay = 0.25;
    saved.invertrear = true;
    saved.rearon = false;
    saved.fronton = false;
    RegistryNode writing{store, RegistryNode::write};
    saved.exchangeSettings(writing);
    RegistryNode reading{store, RegistryNode::read};
    MixerStage loaded;
    loaded.exchangeSettings(reading);
    EXPECT_TRUE(loaded.enable);
    EXPECT_EQ(loaded.antidelay, 0.25);
    EXPECT_TRUE(loaded.invertrear);
    EXPECT_FALSE(loaded.rearon);
    EXPECT_FALSE(loaded.fronton);
    bool front = true;
    reading.exchangeBool("Mixer", "fronton", front);
    EXPECT_FALSE(front);
}

} // namespace
} // namespace velorine::test
