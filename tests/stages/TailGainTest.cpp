#include "stages/TailStage.h"

#include "tests/stages/TailRig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace velorine::test {
namespace {

constexpr int int16 = sampleType::int16;
constexpr int int24 = sampleType::int24;
constexpr int int32 = sampleType::int32;
constexpr int float32 = sampleType::float32;

class TailGain : public testing::Test, protected TailRig {
protected:
    template <typename Sample>
    void add(int type, int channels, const std::vector<Sample>& samples) {
        const FxTime begin = ring.empty() ? 0 : ring.newest().timeEnd;
        const auto frames = static_cast<FxTime>(samples.size()) / channels;
        appendTo(ring, blockOf(arena, formatOf(type, channels, 48000), samples, begin,
                               begin + 100 * frames));
    }

    template <typename Sample>
    std::vector<Sample> all() {
        std::vector<Sample> samples;
        while (process()) {
            const auto block = samplesOf<Sample>(out);
            samples.insert(samples.end(), block.begin(), block.end());
        }
        return samples;
    }

    std::mt19937 random{11};
};

TEST_F(TailGain, SixteenBitsStaySixteenBitsWithDither) {
    std::vector<std::int16_t> samples(20'000);
    for (std::int16_t& x : samples)
        x = static_cast<std::int16_t>(random());
    samples[0] = 32767;
    samples[1] = -32768;
    add(int16, 2, samples);
    stage.gain.store(0.5);

    ModelDither dither{seed};
    std::vector<std::int16_t> expected;
    for (const std::int16_t x : samples)
        expected.push_back(static_cast<std::int16_t>(
            std::clamp<std::int64_t>(std::llrint(x * 0.5 + dither.next()), -32768, 32767)));
    EXPECT_EQ(all<std::int16_t>(), expected);
    EXPECT_EQ(stage.framesOut, 10'000);
}

TEST_F(TailGain, SixteenBitsAreClampedAfterRounding) {
    add(int16, 1, std::vector<std::int16_t>(5000, 32767));
    stage.gain.store(std::nextafter(1.0, 0.0)); // just below one: the gain path at full level
    ModelDither dither{seed};
    std::vector<std::int16_t> expected;
    for (int i = 0; i < 5000; ++i)
        expected.push_back(static_cast<std::int16_t>(std::min<std::int64_t>(
            std::llrint(32767 * std::nextafter(1.0, 0.0) + dither.next()), 32767)));
    EXPECT_EQ(all<std::int16_t>(), expected);
    EXPECT_NE(std::count(expected.begin(), expected.end(), 32766), 0);
}

TEST_F(TailGain, ThirtyTwoBitsAreClampedBeforeTheDither) {
    constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();
    constexpr std::int32_t least = std::numeric_limits<std::int32_t>::min();
    std::vector<std::int32_t> samples;
    for (int i = 0; i < 4000; ++i)
        samples.push_back(i % 2 == 0 ? most : least);
    for (int i = 0; i < 4000; ++i)
        samples.push_back(static_cast<std::int32_t>(random()));
    add(int32, 1, samples);
    const double gain = std::nextafter(1.0, 0.0);
    stage.gain.store(gain);

    ModelDither dither{seed};
    std::vector<std::int32_t> expected;
    for (const std::int32_t x : samples) {
        const double scaled = std::clamp(x * gain, -2147483647.5, 2147483646.5);
        expected.push_back(static_cast<std::int32_t>(
            std::clamp<std::int64_t>(std::llrint(scaled + dither.next()), least, most)));
    }
    EXPECT_EQ(all<std::int32_t>(), expected);
    EXPECT_EQ(out.format.type, int16); // an untouched block
}

TEST_F(TailGain, TheDitherGoesOnAcrossBlocks) {
    for (int i = 0; i < 5; ++i)
        add(int16, 1, std::vector<std::int16_t>(1000, 100));
    add(float32, 1, std::vector<float>(10)); // ends the run of 16 bits
    for (int i = 0; i < 5; ++i)
        add(int16, 1, std::vector<std::int16_t>(1000, 100));
    stage.gain.store(0.25);
    ModelDither dither{seed};
    std::vector<std::int16_t> expected;
    for (int i = 0; i < 10'000; ++i)
        expected.push_back(static_cast<std::int16_t>(std::llrint(25.0 + dither.next())));
    std::vector<std::int16_t> got;
    while (process()) {
        if (out.format.type != int16) continue;
        const auto block = samplesOf<std::int16_t>(out);
        got.insert(got.end(), block.begin(), block.end());
    }
    EXPECT_EQ(got, expected);
}

TEST_F(TailGain, FloatIsMultipliedAndNotClamped) {
    std::vector<float> samples{0.5f, -1.0f, 1e-20f, 0.3f, 100.0f, -0.7f};
    add(float32, 2, samples);
    stage.gain.store(0.6918310);
    std::vector<float> expected;
    for (const float x : samples)
        expected.push_back(x * static_cast<float>(0.6918310));
    EXPECT_EQ(all<float>(), expected);
}

TEST_F(TailGain, AGainAboveOneMakesFloatOfEveryType) {
    add<std::int16_t>(int16, 1, {16384, -32768, 32767});
    stage.gain.store(1.5);
    ASSERT_TRUE(process());
    EXPECT_EQ(out.format, formatOf(float32, 1, 48000));
    EXPECT_EQ(samplesOf<float>(out), (std::vector<float>{0.75f, -1.5f, 32767.0f / 32768 * 1.5f}));
    add<std::int32_t>(int32, 1, {1 << 30});
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<float>(out), (std::vector<float>{0.75f}));
}

TEST_F(TailGain, TwentyFourBitsBecomeFloat) {
    // 0x400000 and -0x200000: a half and a negative quarter
    add<std::uint8_t>(int24, 1, {0x00, 0x00, 0x40, 0x00, 0x00, 0xE0});
    ring.at(0).last = 2;
    ring.at(0).posEnd = 2;
    stage.gain.store(0.5);
    ASSERT_TRUE(process());
    EXPECT_EQ(out.format, formatOf(float32, 1, 48000));
    EXPECT_EQ(samplesOf<float>(out), (std::vector<float>{0.25f, -0.125f}));
}

TEST_F(TailGain, TheOtherTypesBecomeFloatToo) {
    stage.gain.store(0.5);
    add<std::uint8_t>(sampleType::int8, 1, {0x80, 0xC0, 0x40});
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<float>(out), (std::vector<float>{0.0f, 0.25f, -0.25f}));
    add<double>(sampleType::float64, 1, {0.5, -3.0});
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<float>(out), (std::vector<float>{0.25f, -1.5f}));
}

TEST_F(TailGain, SpansAreInterpolatedAcrossBlocks) {
    add(int16, 1, std::vector<std::int16_t>(3000, 1));
    add(int16, 1, std::vector<std::int16_t>(3000, 1));
    stage.gain.store(0.5);
    std::int64_t frame = 0;
    while (process()) {
        EXPECT_EQ(out.timeStart, 100 * frame);
        EXPECT_EQ(out.srcStart, frame << 16);
        frame += out.frames();
        EXPECT_EQ(out.timeEnd, 100 * frame);
        EXPECT_EQ(out.srcEnd, frame << 16);
    }
    EXPECT_EQ(frame, 6000);
}

TEST_F(TailGain, StartsInsideABlock) {
    add(int16, 1, counting<std::int16_t>(1000, 0));
    stage.gain.store(0.999);
    stage.seek(0, FxPos::fromFrame(900));
    const auto samples = all<std::int16_t>();
    ASSERT_EQ(samples.size(), 100u);
    EXPECT_NEAR(samples[0], 899.1, 1.5);
    EXPECT_NEAR(samples[99], 998.0, 1.5);
}

TEST_F(TailGain, SamplesOfLessThanFullWidthAreTakenBlockByBlock) {
    add(int16, 1, std::vector<std::int16_t>(100, 400));
    ring.at(0).format.layout = 14;
    add(int16, 1, std::vector<std::int16_t>(100, 400));
    stage.gain.store(0.5);
    ASSERT_TRUE(process());
    EXPECT_EQ(out.frames(), 100);
    ASSERT_TRUE(process());
    EXPECT_EQ(out.frames(), 100);
    EXPECT_FALSE(process());
}

TEST_F(TailGain, MarkersAndHolesGoOnAsWithoutAGain) {
    add(int16, 1, std::vector<std::int16_t>(10, 1000));
    appendTo(ring, markerOf(formatOf(int16, 2, 96000), ring.newest().timeEnd));
    FxBlock late = countingBlock(arena, 10, 1000, 5000, 6000);
    late.posStart = 1010;
    late.posEnd = 1020;
    ring.push(late);
    stage.gain.store(0.5);
    std::vector<int> frames;
    while (process())
        frames.push_back(out.frames());
    EXPECT_EQ(frames, (std::vector<int>{10, 0, 576, 424, 10}));
    EXPECT_EQ(stage.framesOut, 1020);
}

TEST_F(TailGain, OneIsNoGain) {
    add(int16, 1, counting<std::int16_t>(10, 1));
    stage.gain.store(1.0);
    ASSERT_TRUE(process());
    EXPECT_EQ(out.buffer.get(), ring.at(0).buffer.get());
}

} // namespace
} // namespace velorine::test
