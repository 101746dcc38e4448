#include "chain/WindowRead.h"

#include "chain/RingAppend.h"
#include "tests/support/Blocks.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace velorine::test {
namespace {

constexpr int int8 = sampleType::int8;
constexpr int int16 = sampleType::int16;
constexpr int float32 = sampleType::float32;

class WindowRead : public testing::Test {
protected:
    std::vector<std::int16_t> read16(std::int64_t start, int frames) {
        const FrameWindow window = readWindow(ring, converter, {}, start, frames);
        EXPECT_EQ(window.frames, frames);
        EXPECT_EQ(window.format.type, int16);
        const auto* const first = window.as<std::int16_t>();
        return {first, first + frames * window.format.channels};
    }

    FxArena arena;
    FxRing ring;
    SampleConverterHandle converter;
};

TEST_F(WindowRead, JoinsTheFramesOfManyBlocks) {
    for (int i = 0; i < 4; ++i)
        appendTo(ring, countingBlock(arena, 5, 100 + 5 * i, 100 * i, 100 * i + 100));
    EXPECT_EQ(read16(3, 14), counting<std::int16_t>(14, 103));
    EXPECT_EQ(read16(0, 20), counting<std::int16_t>(20, 100));
    EXPECT_EQ(read16(7, 1), counting<std::int16_t>(1, 107));
}

TEST_F(WindowRead, ReadsTheBlocksPartOfASharedBuffer) {
    FxBlock block = countingBlock(arena, 10, 0, 0, 100);
    block.first = 4; // the first frames of the buffer were passed over
    appendTo(ring, block);
    EXPECT_EQ(read16(0, 6), counting<std::int16_t>(6, 4));
}

TEST_F(WindowRead, FramesThatNoBlockHoldsAreSilence) {
    appendTo(ring, countingBlock(arena, 4, 1, 0, 100));
    FxBlock late = countingBlock(arena, 4, 5, 200, 300);
    late.posStart = 8;
    late.posEnd = 12;
    ring.push(late);
    EXPECT_EQ(read16(-2, 16),
              (std::vector<std::int16_t>{0, 0, 1, 2, 3, 4, 0, 0, 0, 0, 5, 6, 7, 8, 0, 0}));
}

TEST_F(WindowRead, SilenceOfUnsignedBytesIsTheirMiddle) {
    appendTo(ring, blockOf<std::uint8_t>(arena, formatOf(int8, 1, 8000), {1, 2}, 0, 100));
    const FrameWindow window = readWindow(ring, converter, {}, -1, 4);
    const auto* const samples = window.as<std::uint8_t>();
    EXPECT_EQ(std::vector<int>(samples, samples + 4), (std::vector<int>{0x80, 1, 2, 0x80}));
}

TEST_F(WindowRead, TakesTheFormatOfTheBlockAtTheStart) {
    appendTo(ring, countingBlock(arena, 4, 1, 0, 100));
    appendTo(ring,
             blockOf<float>(arena, formatOf(float32, 2, 44100), std::vector<float>(8), 100, 200));
    EXPECT_EQ(readWindow(ring, converter, {}, 0, 2).format, formatOf(int16, 1, 48000));
    EXPECT_EQ(readWindow(ring, converter, {}, 4, 2).format, formatOf(float32, 2, 44100));
}

TEST_F(WindowRead, AMarkerAtTheStartHasNoFormatOfItsOwn) {
    appendTo(ring, markerOf(formatOf(float32, 2, 44100), 0));
    appendTo(ring, countingBlock(arena, 4, 1, 0, 100));
    EXPECT_EQ(formatAtFrame(ring, 0), formatOf(int16, 1, 48000));
    EXPECT_EQ(read16(0, 4), counting<std::int16_t>(4, 1));
}

TEST_F(WindowRead, AMarkerAtTheEndOfTheRingTellsTheFormatThere) {
    appendTo(ring, countingBlock(arena, 4, 1, 0, 100));
    appendTo(ring, markerOf(formatOf(float32, 2, 44100), 100));
    EXPECT_EQ(formatAtFrame(ring, 4), formatOf(float32, 2, 44100));
    EXPECT_EQ(formatAtFrame(ring, 90), formatOf(float32, 2, 44100));
}

TEST_F(WindowRead, AnEmptyRingReadsAsSixteenBitStereoSilence) {
    const FrameWindow window = readWindow(ring, converter, {}, 10, 3);
    EXPECT_EQ(window.format, formatOf(int16, 2, 48000));
    EXPECT_TRUE(std::all_of(window.as<std::int16_t>(), window.as<std::int16_t>() + 6,
                            [](std::int16_t x) { return x == 0; }));
}

TEST_F(WindowRead, BlocksOfAnotherTypeAreConverted) {
    appendTo(ring, blockOf<std::int16_t>(arena, formatOf(int16, 1, 48000), {16384, -8192}, 0, 100));
    appendTo(ring, blockOf<float>(arena, formatOf(float32, 1, 48000), {0.25f, -1.0f}, 100, 200));
    const FrameWindow window = readWindow(ring, converter, formatOf(float32, 1, 48000), 0, 4);
    const auto* const samples = window.as<float>();
    EXPECT_EQ(std::vector<float>(samples, samples + 4),
              (std::vector<float>{0.5f, -0.25f, 0.25f, -1.0f}));
}

TEST_F(WindowRead, ChannelsAreBroughtToTheWantedCount) {
    appendTo(ring, blockOf<float>(arena, formatOf(float32, 1, 48000), {0.25f, -0.5f}, 0, 100));
    const FrameWindow window = readWindow(ring, converter, formatOf(float32, 2, 48000), 0, 2);
    const auto* const samples = window.as<float>();
    EXPECT_EQ(std::vector<float>(samples, samples + 4),
              (std::vector<float>{0.25f, 0.25f, -0.5f, -0.5f}));
}

TEST_F(WindowRead, RatesAreNotConverted) {
    appendTo(ring, countingBlock(arena, 4, 1, 0, 100, 22050));
    const FrameWindow window = readWindow(ring, converter, formatOf(int16, 1, 96000), 0, 4);
    EXPECT_EQ(window.frames, 4);
    EXPECT_EQ(window.as<std::int16_t>()[3], 4);
}

TEST_F(WindowRead, TellsTheTimeThatItCovers) {
    appendTo(ring, countingBlock(arena, 10, 0, 0, 100));
    appendTo(ring, countingBlock(arena, 10, 0, 100, 300));
    const FrameWindow window = readWindow(ring, converter, {}, 5, 10);
    EXPECT_EQ(window.timeStart, 50);
    EXPECT_EQ(window.timeEnd, 200);
}

TEST_F(WindowRead, NoFramesAreAWindowToo) {
    appendTo(ring, countingBlock(arena, 10, 0, 0, 100));
    const FrameWindow window = readWindow(ring, converter, {}, 5, 0);
    EXPECT_EQ(window.frames, 0);
    EXPECT_EQ(window.timeStart, window.timeEnd);
}

} // namespace
} // namespace velorine::test
