#include "chain/BlockPassing.h"

#include "chain/RingAppend.h"
#include "tests/support/Blocks.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

constexpr int int16 = sampleType::int16;

class BlockPassing : public testing::Test {
protected:
    bool pass() {
        out = {};
        return passBlock(arena, out, ring, converter, nextFrame, cursor);
    }

    /// Pushes a block at `posStart`, wherever the ring ends.
    void pushAt(std::int64_t posStart, int frames, int first) {
        FxBlock block =
            countingBlock(arena, frames, first, 10 * posStart, 10 * (posStart + frames));
        block.posStart = posStart;
        block.posEnd = posStart + frames;
        ring.push(block);
    }

    FxArena arena;
    FxRing ring;
    SampleConverterHandle converter;
    FxBlock out;
    std::int64_t nextFrame = 0;
    std::int32_t cursor = 0;
};

TEST_F(BlockPassing, AWholeBlockSharesItsSamples) {
    pushAt(0, 10, 1);
    ring.at(0).srcStart = 700 << 16; // the span on the axis before that
    ASSERT_TRUE(pass());
    EXPECT_EQ(out.buffer.get(), ring.at(0).buffer.get());
    EXPECT_EQ(samplesOf<std::int16_t>(out), counting<std::int16_t>(10, 1));
    EXPECT_EQ(out.srcStart, 0);
    EXPECT_EQ(out.srcEnd, std::int64_t{10} << 16);
    EXPECT_EQ(out.timeStart, 0);
    EXPECT_EQ(out.timeEnd, 100);
    EXPECT_EQ(nextFrame, 10);
    EXPECT_EQ(cursor, 1);
}

TEST_F(BlockPassing, ABlockEnteredInsideIsPassedFromThereOn) {
    pushAt(0, 10, 1);
    nextFrame = 4;
    ASSERT_TRUE(pass());
    EXPECT_EQ(out.buffer.get(), ring.at(0).buffer.get());
    EXPECT_EQ(samplesOf<std::int16_t>(out), counting<std::int16_t>(6, 5));
    EXPECT_EQ(out.timeStart, 40);
    EXPECT_EQ(out.timeEnd, 100);
    EXPECT_EQ(out.srcStart, std::int64_t{4} << 16);
    EXPECT_EQ(out.srcEnd, std::int64_t{10} << 16);
}

TEST_F(BlockPassing, AHoleOfAThousandFramesIsSilenceInTwoPieces) {
    pushAt(0, 10, 1);
    pushAt(1010, 10, 50);
    ASSERT_TRUE(pass());
    ASSERT_TRUE(pass());
    EXPECT_EQ(samplesOf<std::int16_t>(out), std::vector<std::int16_t>(576));
    EXPECT_EQ(out.srcStart, std::int64_t{10} << 16);
    EXPECT_EQ(out.srcEnd, std::int64_t{586} << 16);
    EXPECT_EQ(out.timeStart, 100);
    EXPECT_EQ(out.timeEnd, 5860);
    ASSERT_TRUE(pass());
    EXPECT_EQ(samplesOf<std::int16_t>(out), std::vector<std::int16_t>(424));
    ASSERT_TRUE(pass());
    EXPECT_EQ(samplesOf<std::int16_t>(out), counting<std::int16_t>(10, 50));
    EXPECT_FALSE(pass());
}

TEST_F(BlockPassing, SilenceHasTheFormatOfTheBlockBehindIt) {
    pushAt(0, 10, 1);
    FxBlock bytes =
        blockOf<std::uint8_t>(arena, formatOf(sampleType::int8, 1, 8000), {1, 2}, 100, 200);
    bytes.posStart = 12;
    bytes.posEnd = 14;
    ring.push(bytes);
    nextFrame = 10;
    ASSERT_TRUE(pass());
    EXPECT_EQ(out.format, formatOf(sampleType::int8, 1, 8000));
    EXPECT_EQ(samplesOf<std::uint8_t>(out), (std::vector<std::uint8_t>{0x80, 0x80}));
}

TEST_F(BlockPassing, NothingIsPassedBehindTheEnd) {
    EXPECT_FALSE(pass());
    pushAt(0, 10, 1);
    nextFrame = 10;
    cursor = 1;
    EXPECT_FALSE(pass());
    EXPECT_EQ(nextFrame, 10);
    EXPECT_EQ(cursor, 1);
}

TEST_F(BlockPassing, AMarkerIsPassedOnce) {
    pushAt(0, 10, 1);
    appendTo(ring, markerOf(formatOf(int16, 2, 44100), 100));
    ASSERT_TRUE(pass());
    ASSERT_TRUE(pass());
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(out.format, formatOf(int16, 2, 44100));
    EXPECT_EQ(out.srcStart, std::int64_t{10} << 16);
    EXPECT_EQ(nextFrame, 10);
    EXPECT_FALSE(pass());
}

TEST_F(BlockPassing, FormatChangesTravelWithoutLosingFrames) {
    pushAt(0, 10, 1);
    appendTo(ring, markerOf(formatOf(int16, 1, 44100), 100));
    appendTo(ring, countingBlock(arena, 10, 11, 100, 200, 44100));
    std::vector<std::int16_t> passed;
    while (pass()) {
        const auto samples = samplesOf<std::int16_t>(out);
        passed.insert(passed.end(), samples.begin(), samples.end());
    }
    EXPECT_EQ(passed, counting<std::int16_t>(20, 1));
    EXPECT_EQ(out.format.rate, 48000); // an untouched block is the default
}

} // namespace
} // namespace velorine::test
