#include "chain/RingSearch.h"

#include "chain/RingAppend.h"
#include "tests/support/Blocks.h"

#include <gtest/gtest.h>

#include <random>

namespace velorine::test {
namespace {

constexpr int int16 = sampleType::int16;

/// The first block that ends behind `frame`, or begins at or behind it: by looking at each.
int blockByLooking(const FxRing& ring, std::int64_t frame) {
    for (int i = 0; i < ring.count(); ++i)
        if (ring.at(i).posEnd > frame || ring.at(i).posStart >= frame) return i;
    return ring.count();
}

class RingSearch : public testing::Test {
protected:
    /// Blocks of 10 frames at 0, 10, 20 and, behind a hole, at 50; each lasts 100 ticks.
    void fillWithHole() {
        for (int i = 0; i < 3; ++i)
            appendTo(ring, countingBlock(arena, 10, 10 * i, 100 * i, 100 * i + 100));
        FxBlock late = countingBlock(arena, 10, 50, 500, 600);
        late.posStart = 50;
        late.posEnd = 60;
        ring.push(late);
    }

    FxArena arena;
    FxRing ring;
};

TEST_F(RingSearch, AnEmptyRingHoldsNothing) {
    EXPECT_EQ(indexAt(ring, 0), 0);
    EXPECT_EQ(indexAt(ring, 5, 17), 0);
    EXPECT_EQ(timeAtFrame(ring, 5), 0);
    EXPECT_EQ(frameAtTime(ring, 5), 0);
    EXPECT_EQ(sourceAt(ring, 5), FxPos{});
    EXPECT_EQ(firstUsableFrame(ring, 3, 9), 3);
}

TEST_F(RingSearch, FindsTheBlockThatHoldsAFrame) {
    fillWithHole();
    EXPECT_EQ(indexAt(ring, -5), 0);
    EXPECT_EQ(indexAt(ring, 0), 0);
    EXPECT_EQ(indexAt(ring, 9), 0);
    EXPECT_EQ(indexAt(ring, 10), 1);
    EXPECT_EQ(indexAt(ring, 29), 2);
    EXPECT_EQ(indexAt(ring, 30), 3); // in the hole: the block behind it
    EXPECT_EQ(indexAt(ring, 59), 3);
    EXPECT_EQ(indexAt(ring, 60), 4);
}

TEST_F(RingSearch, EveryCursorLeadsToTheSameBlock) {
    std::mt19937 random{1};
    for (int round = 0; round < 200; ++round) {
        FxRing shuffled;
        const int blocks = 1 + static_cast<int>(random() % 20);
        for (int i = 0; i < blocks; ++i)
            appendTo(shuffled, countingBlock(arena, 1 + static_cast<int>(random() % 5), 0, 10 * i,
                                             10 * i + 10));
        for (int i = static_cast<int>(random() % 5); i > 0 && shuffled.count() > 1; --i)
            shuffled.pop();
        for (std::int64_t frame = shuffled.oldest().posStart - 2; frame <= shuffled.end() + 2;
             ++frame)
            for (int cursor = -3; cursor < blocks + 30; ++cursor)
                ASSERT_EQ(indexAt(shuffled, frame, cursor), blockByLooking(shuffled, frame))
                    << "frame " << frame << " cursor " << cursor;
    }
}

TEST_F(RingSearch, BinarySearchAgreesWithLookingAtEachBlockWithMarkers) {
    std::mt19937 random{2};
    for (int round = 0; round < 300; ++round) {
        FxRing mixed;
        const int blocks = 1 + static_cast<int>(random() % 30);
        for (int i = 0; i < blocks; ++i)
            appendTo(mixed,
                     countingBlock(arena, static_cast<int>(random() % 3), 0, 10 * i, 10 * i + 10));
        for (std::int64_t frame = -1; frame <= mixed.end() + 1; ++frame)
            ASSERT_EQ(indexAt(mixed, frame), blockByLooking(mixed, frame));
    }
}

TEST_F(RingSearch, AReaderMeetsEachMarkerOnce) {
    appendTo(ring, countingBlock(arena, 10, 0, 0, 100));
    appendTo(ring, markerOf(formatOf(int16, 1, 48000), 100));
    appendTo(ring, markerOf(formatOf(int16, 1, 48000), 120));
    appendTo(ring, countingBlock(arena, 10, 0, 120, 200));

    std::vector<int> met;
    std::int64_t frame = 0;
    std::int32_t cursor = 0;
    for (int index = indexAt(ring, frame, cursor); index < ring.count();
         index = indexAt(ring, frame, cursor)) {
        met.push_back(index);
        frame = ring.at(index).posEnd;
        cursor = ring.removed() + index + 1;
        ASSERT_LE(met.size(), 4u);
    }
    EXPECT_EQ(met, (std::vector<int>{0, 1, 2, 3}));
}

TEST_F(RingSearch, AMarkerAtTheEndIsMetOnceAndThenNoMore) {
    appendTo(ring, countingBlock(arena, 10, 0, 0, 100));
    appendTo(ring, markerOf(formatOf(int16, 1, 48000), 100));
    EXPECT_EQ(indexAt(ring, 10, 1), 1);
    EXPECT_EQ(indexAt(ring, 10, 2), 2);
}

TEST_F(RingSearch, AMarkerBeforeAHoleIsMetOnce) {
    appendTo(ring, countingBlock(arena, 10, 0, 0, 100));
    appendTo(ring, markerOf(formatOf(int16, 1, 48000), 100));
    FxBlock late = countingBlock(arena, 10, 50, 500, 600);
    late.posStart = 50;
    late.posEnd = 60;
    ring.push(late);
    EXPECT_EQ(indexAt(ring, 10, 1), 1);
    EXPECT_EQ(indexAt(ring, 10, 2), 2);
    EXPECT_EQ(indexAt(ring, 30, 2), 2);
}

TEST_F(RingSearch, ACursorBeyondACutRingFindsWhatFollows) {
    for (int i = 0; i < 8; ++i)
        appendTo(ring, countingBlock(arena, 10, 0, 100 * i, 100 * i + 100));
    ring.truncate(45);
    EXPECT_EQ(indexAt(ring, 45, 8), ring.count());
    appendTo(ring, countingBlock(arena, 10, 0, 800, 900));
    appendTo(ring, countingBlock(arena, 10, 0, 900, 950));
    EXPECT_EQ(indexAt(ring, 45, 8), 5);
    EXPECT_EQ(indexAt(ring, 44, 8), 4);
}

TEST_F(RingSearch, TimeRunsLinearlyInBlocksAndHoles) {
    fillWithHole();
    EXPECT_EQ(timeAtFrame(ring, -1), 0);
    EXPECT_EQ(timeAtFrame(ring, 0), 0);
    EXPECT_EQ(timeAtFrame(ring, 3), 30);
    EXPECT_EQ(timeAtFrame(ring, 10), 100);
    EXPECT_EQ(timeAtFrame(ring, 30), 300);
    EXPECT_EQ(timeAtFrame(ring, 35), 350); // 300 to 500 over 20 frames of hole
    EXPECT_EQ(timeAtFrame(ring, 50), 500);
    EXPECT_EQ(timeAtFrame(ring, 60), 600);
    EXPECT_EQ(timeAtFrame(ring, 1000), 600);
}

TEST_F(RingSearch, AMarkerHasTheTimeOfItsStart) {
    FxBlock marker = markerOf(formatOf(int16, 1, 48000), 40);
    marker.timeEnd = 90;
    appendTo(ring, marker);
    appendTo(ring, countingBlock(arena, 10, 0, 90, 190));
    EXPECT_EQ(timeAtFrame(ring, 0), 40);
    EXPECT_EQ(timeAtFrame(ring, 1), 100);
}

TEST_F(RingSearch, SourceIsInterpolatedAcrossABlock) {
    FxBlock block = countingBlock(arena, 8, 0, 0, 100);
    block.srcStart = 100 << 16;
    block.srcEnd = 104 << 16; // two frames out for each frame in
    appendTo(ring, block);
    EXPECT_EQ(sourceAt(ring, 0), FxPos::fromDouble(100.0));
    EXPECT_EQ(sourceAt(ring, 3), FxPos::fromDouble(101.5));
    EXPECT_EQ(sourceAt(ring, 8), FxPos::fromDouble(104.0));
}

TEST_F(RingSearch, AtABorderTheNewerBlockTellsTheSource) {
    FxBlock before = countingBlock(arena, 10, 0, 0, 100);
    before.srcStart = 0;
    before.srcEnd = 10 << 16;
    FxBlock behind = countingBlock(arena, 10, 0, 100, 200);
    behind.srcStart = 500 << 16; // the fader jumped
    behind.srcEnd = 510 << 16;
    appendTo(ring, before);
    appendTo(ring, behind);
    EXPECT_EQ(sourceAt(ring, 10).whole, 500);
    EXPECT_EQ(sourceAt(ring, 9).whole, 9);
}

TEST_F(RingSearch, WhereNoBlockHoldsAFrameTheOldestTellsTheSource) {
    FxBlock block = countingBlock(arena, 10, 0, 0, 100);
    block.srcStart = 300 << 16;
    block.srcEnd = 310 << 16;
    appendTo(ring, block);
    appendTo(ring, countingBlock(arena, 10, 0, 100, 200));
    EXPECT_EQ(sourceAt(ring, -7).whole, 300);
    EXPECT_EQ(sourceAt(ring, 900).whole, 300);
}

TEST_F(RingSearch, AMarkerTellsItsSourceWithoutDividing) {
    FxBlock marker = markerOf(formatOf(int16, 1, 48000), 0);
    marker.srcStart = marker.srcEnd = 42 << 16;
    appendTo(ring, marker);
    EXPECT_EQ(sourceAt(ring, 0), FxPos::fromFrame(42));
}

TEST_F(RingSearch, FrameAtTimeIsHeldToTheRing) {
    fillWithHole();
    EXPECT_EQ(frameAtTime(ring, -1), 0);
    EXPECT_EQ(frameAtTime(ring, 0), 0);
    EXPECT_EQ(frameAtTime(ring, 150), 15);
    EXPECT_EQ(frameAtTime(ring, 600), 60);
    EXPECT_EQ(frameAtTime(ring, 601), 60);
}

TEST_F(RingSearch, FrameAtTimeInABlockOfNoDurationIsItsEnd) {
    appendTo(ring, countingBlock(arena, 10, 0, 0, 100));
    appendTo(ring, countingBlock(arena, 10, 0, 100, 100));
    EXPECT_EQ(frameAtTime(ring, 100), 20);
}

TEST_F(RingSearch, AUniformRunEndsWhereAFormatChanges) {
    appendTo(ring, countingBlock(arena, 10, 0, 0, 100));
    appendTo(ring, countingBlock(arena, 10, 0, 100, 200));
    appendTo(ring, countingBlock(arena, 10, 0, 200, 300, 44100));
    EXPECT_EQ(firstUsableFrame(ring, 3, 100), 20);
    EXPECT_EQ(firstUsableFrame(ring, 3, 15), 15);
    EXPECT_EQ(firstUsableFrame(ring, 20, 100), 30);
}

TEST_F(RingSearch, AUniformRunEndsAtAHole) {
    fillWithHole();
    EXPECT_EQ(firstUsableFrame(ring, 0, 100), 30);
    EXPECT_EQ(firstUsableFrame(ring, 50, 100), 60);
}

TEST_F(RingSearch, SamplesOfLessThanFullWidthEndAUniformRun) {
    appendTo(ring, countingBlock(arena, 10, 0, 0, 100));
    FxBlock narrow = countingBlock(arena, 10, 0, 100, 200);
    narrow.format.layout = 14;
    appendTo(ring, narrow);
    FxBlock exact = countingBlock(arena, 10, 0, 200, 300);
    exact.format.layout = 16;
    appendTo(ring, exact);
    EXPECT_EQ(firstUsableFrame(ring, 0, 100), 10);
    EXPECT_EQ(firstUsableFrame(ring, 10, 100), 10);
    EXPECT_EQ(firstUsableFrame(ring, 20, 100), 30);
}

} // namespace
} // namespace velorine::test
