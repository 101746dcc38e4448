#include "foundation/FxRing.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace velorine::test {

namespace {

constexpr std::int64_t ticksPerFrame = 208; // near 48 kHz

/// `frames` frames behind what `ring` holds, at half a source frame each.
FxBlock next(const FxRing& ring, int frames) {
    FxBlock block = ring.endMarker();
    block.last = frames;
    block.posEnd = block.posStart + frames;
    block.timeEnd = block.timeStart + frames * ticksPerFrame;
    block.srcEnd = block.srcStart + (std::int64_t{frames} << 15);
    return block;
}

FxBlock markerAt(const FxRing& ring, int rate) {
    FxBlock marker = ring.endMarker();
    marker.format.rate = rate;
    return marker;
}

/// The axis has no holes, and no span runs backward.
void expectWhole(const FxRing& ring) {
    for (int i = 0; i < ring.count(); ++i) {
        const FxBlock& block = ring.at(i);
        ASSERT_EQ(block.posEnd - block.posStart, block.last - block.first);
        ASSERT_LE(block.timeStart, block.timeEnd);
        ASSERT_LE(block.srcStart, block.srcEnd);
        if (i == 0) continue;
        ASSERT_EQ(block.posStart, ring.at(i - 1).posEnd);
        ASSERT_GE(block.timeStart, ring.at(i - 1).timeEnd);
        ASSERT_GE(block.srcStart, ring.at(i - 1).srcEnd);
    }
}

TEST(FxRing, GrowsTo48AndThenDoubles) {
    FxRing ring;
    EXPECT_EQ(ring.capacity(), 0);
    EXPECT_EQ(ring.end(), 0);
    for (int i = 1; i <= 97; ++i) {
        ring.push(next(ring, 10));
        EXPECT_EQ(ring.capacity(), i <= 48 ? 48 : i <= 96 ? 96 : 192) << "push " << i;
    }
    EXPECT_EQ(ring.count(), 97);
    EXPECT_EQ(ring.end(), 970);
    expectWhole(ring);
}

TEST(FxRing, KeepsItsOrderWhenItGrowsPastItsSeam) {
    FxRing ring;
    for (int i = 0; i < 48; ++i)
        ring.push(next(ring, 1));
    for (int i = 0; i < 20; ++i)
        ring.pop();
    for (int i = 0; i < 30; ++i)
        ring.push(next(ring, 1));
    EXPECT_EQ(ring.capacity(), 96);
    EXPECT_EQ(ring.oldest().posStart, 20);
    EXPECT_EQ(ring.newest().posEnd, 78);
    expectWhole(ring);
}

TEST(FxRing, BlockNumbersSurvivePops) {
    FxRing ring;
    for (int i = 0; i < 60; ++i)
        ring.push(next(ring, 100));
    const int number = 45; // since the ring was made
    for (int pops = 0; pops < 40; ++pops) {
        EXPECT_EQ(ring.removed(), pops);
        EXPECT_EQ(ring.at(number - ring.removed()).posStart, 4500);
        ring.pop();
        ring.push(next(ring, 100));
    }
}

TEST(FxRing, NumbersMoveWithPopsAlone) {
    FxRing ring;
    for (int i = 0; i < 10; ++i)
        ring.push(next(ring, 10));
    ring.truncate(35);
    EXPECT_EQ(ring.removed(), 0);
    ring.pop();
    ring.clearTo(ring.endMarker());
    EXPECT_EQ(ring.removed(), 1);
    EXPECT_EQ(ring.count(), 1);
}

TEST(FxRing, SharesTheSamplesWithItsBlocks) {
    FxArena arena;
    FxRing ring;
    FxBlock block;
    block.allocate(arena, SampleFormat{}, 100);
    block.posEnd = 100;
    ring.push(block);
    EXPECT_TRUE(block.buffer.isShared());
    EXPECT_EQ(ring.newest().data(), block.data());
    ring.push(next(ring, 10));
    ring.pop();
    EXPECT_FALSE(block.buffer.isShared());
}

TEST(FxRing, DropsTheSamplesOfWhatItCuts) {
    FxArena arena;
    FxRing ring;
    for (int i = 0; i < 8; ++i) {
        FxBlock block = next(ring, 100);
        block.buffer.allocate(arena, 400);
        ring.push(std::move(block));
    }
    EXPECT_EQ(arena.liveBytes(), 3200);
    ring.truncate(450);
    EXPECT_EQ(arena.liveBytes(), 2000);
    ring.pop();
    EXPECT_EQ(arena.liveBytes(), 1600);
    ring.truncate(0);
    EXPECT_EQ(arena.liveBytes(), 0);
    FxBlock block = next(ring, 100);
    block.buffer.allocate(arena, 400);
    ring.push(std::move(block));
    ring.clearTo(ring.endMarker());
    EXPECT_EQ(arena.liveBytes(), 0);
}

TEST(FxRing, CutInsideABlockInterpolatesItsEnds) {
    FxRing ring;
    for (int i = 0; i < 3; ++i)
        ring.push(next(ring, 100));
    ring.truncate(150);
    ASSERT_EQ(ring.count(), 2);
    const FxBlock& cut = ring.newest();
    EXPECT_EQ(cut.posStart, 100);
    EXPECT_EQ(cut.posEnd, 150);
    EXPECT_EQ(cut.frames(), 50);
    EXPECT_EQ(cut.timeStart, 20'800);
    EXPECT_EQ(cut.timeEnd, 31'200);
    EXPECT_EQ(cut.srcStart, 50 << 16);
    EXPECT_EQ(cut.srcEnd, 75 << 16);
    expectWhole(ring);
}

TEST(FxRing, CutRoundsHalfATickAway) {
    FxRing ring;
    FxBlock block;
    block.first = 30; // anywhere in its buffer
    block.last = 32;
    block.posEnd = 2;
    block.timeEnd = 3;
    block.srcEnd = 2 << 16;
    ring.push(block);
    ring.truncate(1);
    EXPECT_EQ(ring.newest().timeEnd, 2); // of 1.5
    EXPECT_EQ(ring.newest().srcEnd, 1 << 16);
    EXPECT_EQ(ring.newest().first, 30);
    EXPECT_EQ(ring.newest().last, 31);
}

TEST(FxRing, CutAtABorderLeavesWholeBlocks) {
    FxRing ring;
    for (int i = 0; i < 3; ++i)
        ring.push(next(ring, 100));
    ring.truncate(200);
    EXPECT_EQ(ring.count(), 2);
    EXPECT_EQ(ring.newest().frames(), 100);
    EXPECT_EQ(ring.newest().timeEnd, 200 * ticksPerFrame);
}

TEST(FxRing, CutAtOrBehindTheEndChangesNothing) {
    FxRing ring;
    for (int i = 0; i < 2; ++i)
        ring.push(next(ring, 100));
    ring.truncate(200);
    ring.truncate(1000);
    EXPECT_EQ(ring.count(), 2);
    EXPECT_EQ(ring.end(), 200);
}

TEST(FxRing, MarkerAtTheCutStaysAndThoseBehindGo) {
    FxRing ring;
    ring.push(next(ring, 100));
    FxBlock skippedSilence = markerAt(ring, 96000);
    skippedSilence.timeEnd += 5000;
    ring.push(skippedSilence);
    ring.push(next(ring, 100));
    ring.push(markerAt(ring, 22050));
    ring.truncate(100);
    ASSERT_EQ(ring.count(), 2);
    EXPECT_TRUE(ring.newest().empty());
    EXPECT_EQ(ring.newest().format.rate, 96000);
    EXPECT_EQ(ring.newest().timeEnd, 100 * ticksPerFrame + 5000); // time doesn't go back
    EXPECT_EQ(ring.end(), 100);
    expectWhole(ring);
}

TEST(FxRing, IsNeverLeftWithoutAnEnd) {
    for (const std::int64_t pos : {300, 250, 0}) {
        FxRing ring;
        for (int i = 0; i < 5; ++i) {
            FxBlock block = next(ring, 100);
            block.format.rate = 44100 + i;
            ring.push(block);
        }
        for (int i = 0; i < 3; ++i)
            ring.pop();
        ring.truncate(pos); // at the oldest block's start, or before it
        ASSERT_EQ(ring.count(), 1) << pos;
        EXPECT_TRUE(ring.newest().empty());
        EXPECT_EQ(ring.newest().posStart, 300);
        EXPECT_EQ(ring.newest().timeStart, 300 * ticksPerFrame);
        EXPECT_EQ(ring.newest().timeEnd, 300 * ticksPerFrame);
        EXPECT_EQ(ring.newest().srcEnd, 150 << 16);
        EXPECT_EQ(ring.newest().format.rate, 44103);
        EXPECT_EQ(ring.newest().buffer.get(), nullptr);
        EXPECT_EQ(ring.end(), 300);
        ring.truncate(pos);
        EXPECT_EQ(ring.count(), 1);
        EXPECT_EQ(ring.end(), 300);
        EXPECT_EQ(ring.removed(), 3);
    }
}

TEST(FxRing, ThatNeverHeldABlockStaysEmpty) {
    FxRing ring;
    ring.truncate(0);
    ring.truncate(500);
    EXPECT_TRUE(ring.empty());
    const FxBlock marker = ring.endMarker();
    EXPECT_TRUE(marker.empty());
    EXPECT_EQ(marker.posEnd, 0);
}

TEST(FxRing, ClearedToItsEndItGoesOnFromThere) {
    FxRing ring;
    for (int i = 0; i < 60; ++i)
        ring.push(next(ring, 100));
    ring.newest().format.channels = 6;
    ring.clearTo(ring.endMarker());
    ASSERT_EQ(ring.count(), 1);
    EXPECT_EQ(ring.newest().format.channels, 6);
    EXPECT_EQ(ring.newest().timeEnd, 6000 * ticksPerFrame);
    EXPECT_EQ(ring.newest().srcEnd, 3000 << 16);
    ring.push(next(ring, 10));
    EXPECT_EQ(ring.end(), 6010);
    ring.truncate(6000);
    ring.clearTo(ring.newest()); // even to a marker of its own
    EXPECT_EQ(ring.end(), 6000);
}

TEST(FxRing, StaysWholeThroughRandomUse) {
    std::mt19937 random{3};
    for (int run = 0; run < 20; ++run) {
        FxRing ring;
        std::int32_t popped = 0;
        for (int step = 0; step < 2000; ++step) {
            switch (random() % 10) {
            case 0:
                ring.push(markerAt(ring, 44100));
                break;
            case 1:
            case 2:
                if (ring.count() > 2) {
                    ring.pop();
                    ++popped;
                }
                break;
            case 3: {
                if (ring.empty()) break;
                const std::int64_t from = ring.oldest().posStart;
                const auto reach = static_cast<std::uint32_t>(ring.end() - from + 50);
                const std::int64_t pos = from + static_cast<std::int64_t>(random() % reach);
                const std::int64_t end = ring.end();
                ring.truncate(pos);
                ASSERT_EQ(ring.end(), std::min(pos, end));
                break;
            }
            case 4:
                if (random() % 20 == 0 && !ring.empty()) {
                    const std::int64_t end = ring.end();
                    ring.clearTo(ring.endMarker());
                    ASSERT_EQ(ring.end(), end);
                }
                break;
            default:
                ring.push(next(ring, 1 + static_cast<int>(random() % 2000)));
                break;
            }
            expectWhole(ring);
            if (testing::Test::HasFatalFailure()) return;
            ASSERT_EQ(ring.removed(), popped);
        }
    }
}

} // namespace

} // namespace velorine::test
