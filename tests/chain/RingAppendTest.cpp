#include "chain/RingAppend.h"

#include "tests/support/Blocks.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

constexpr int int16 = sampleType::int16;

class RingAppend : public testing::Test {
protected:
    FxArena arena;
    FxRing ring;
};

TEST_F(RingAppend, PositionsFollowFromTheAxis) {
    appendTo(ring, countingBlock(arena, 10, 0, 0, 100));
    FxBlock misplaced = countingBlock(arena, 5, 0, 100, 150);
    misplaced.posStart = 77;
    misplaced.posEnd = 99;
    appendTo(ring, misplaced);

    EXPECT_EQ(ring.at(0).posStart, 0);
    EXPECT_EQ(ring.at(0).posEnd, 10);
    EXPECT_EQ(ring.at(1).posStart, 10);
    EXPECT_EQ(ring.at(1).posEnd, 15);
}

TEST_F(RingAppend, TimeAndSourceNeverRunBackward) {
    FxBlock first = countingBlock(arena, 10, 0, 50, 100);
    first.srcStart = 5 << 16;
    first.srcEnd = 20 << 16;
    appendTo(ring, first);
    FxBlock earlier = countingBlock(arena, 10, 0, 60, 80);
    earlier.srcStart = 1 << 16;
    earlier.srcEnd = 2 << 16;
    appendTo(ring, earlier);

    EXPECT_EQ(ring.newest().timeStart, 100);
    EXPECT_EQ(ring.newest().timeEnd, 100);
    EXPECT_EQ(ring.newest().srcStart, 20 << 16);
    EXPECT_EQ(ring.newest().srcEnd, 20 << 16);
}

TEST_F(RingAppend, AnEndBeforeItsOwnStartIsHeldToIt) {
    FxBlock block = countingBlock(arena, 10, 0, 90, 30);
    block.srcStart = 9;
    block.srcEnd = 3;
    appendTo(ring, block);
    EXPECT_EQ(ring.newest().timeStart, 90);
    EXPECT_EQ(ring.newest().timeEnd, 90);
    EXPECT_EQ(ring.newest().srcEnd, 9);
}

TEST_F(RingAppend, TheFirstBlockMayLieBeforeTimeZero) {
    appendTo(ring, countingBlock(arena, 4, 0, -200, -100));
    EXPECT_EQ(ring.oldest().timeStart, -200);
    EXPECT_EQ(ring.oldest().timeEnd, -100);
}

TEST_F(RingAppend, AFormatReachesTheEmptyBlocksBeforeIt) {
    commitTo(ring, countingBlock(arena, 10, 0, 0, 100));
    commitTo(ring, markerOf(formatOf(int16, 2, 44100), 100));
    commitTo(ring, markerOf(formatOf(int16, 2, 44100), 120));
    const SampleFormat following = formatOf(sampleType::float32, 6, 96000);
    commitTo(ring, blockOf<float>(arena, following, std::vector<float>(12), 120, 130));

    EXPECT_EQ(ring.at(0).format, formatOf(int16, 1, 48000));
    EXPECT_EQ(ring.at(1).format, following);
    EXPECT_EQ(ring.at(2).format, following);
}

TEST_F(RingAppend, AFormatStopsAtTheNewestBlockWithFrames) {
    commitTo(ring, markerOf(formatOf(int16, 2, 44100), 0));
    commitTo(ring, countingBlock(arena, 10, 0, 0, 100));
    commitTo(ring, markerOf(formatOf(int16, 8, 8000), 100));
    EXPECT_EQ(ring.at(0).format, formatOf(int16, 1, 48000));
    EXPECT_EQ(ring.at(1).format, formatOf(int16, 1, 48000));
    EXPECT_EQ(ring.at(2).format, formatOf(int16, 8, 8000));
}

TEST_F(RingAppend, AThirdEmptyBlockOfTheSameSpansIsNotKept) {
    commitTo(ring, countingBlock(arena, 10, 0, 0, 100));
    for (int i = 0; i < 5; ++i)
        commitTo(ring, markerOf(formatOf(int16, 2, 48000), 100));
    EXPECT_EQ(ring.count(), 3);
    EXPECT_EQ(ring.end(), 10);
}

TEST_F(RingAppend, ACollapsedMarkerStillNamesTheFormat) {
    commitTo(ring, countingBlock(arena, 10, 0, 0, 100));
    commitTo(ring, markerOf(formatOf(int16, 2, 48000), 100));
    commitTo(ring, markerOf(formatOf(int16, 2, 48000), 100));
    commitTo(ring, markerOf(formatOf(int16, 6, 44100), 100));
    EXPECT_EQ(ring.count(), 3);
    EXPECT_EQ(ring.at(1).format, formatOf(int16, 6, 44100));
    EXPECT_EQ(ring.at(2).format, formatOf(int16, 6, 44100));
}

TEST_F(RingAppend, EmptyBlocksOfOtherSpansAreKept) {
    commitTo(ring, markerOf(formatOf(int16, 2, 48000), 0));
    commitTo(ring, markerOf(formatOf(int16, 2, 48000), 0));
    commitTo(ring, markerOf(formatOf(int16, 2, 48000), 1));
    EXPECT_EQ(ring.count(), 3);
}

TEST_F(RingAppend, AnEmptyBlockWithASpanOfTimeIsKept) {
    commitTo(ring, markerOf(formatOf(int16, 2, 48000), 0));
    commitTo(ring, markerOf(formatOf(int16, 2, 48000), 0));
    FxBlock silence = markerOf(formatOf(int16, 2, 48000), 0);
    silence.timeEnd = 500; // skipped silence: time that passes in no frames
    commitTo(ring, silence);
    EXPECT_EQ(ring.count(), 3);
    EXPECT_EQ(ring.newest().timeEnd, 500);
}

} // namespace
} // namespace velorine::test
