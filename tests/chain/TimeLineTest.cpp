#include "chain/TimeLine.h"

#include "chain/RingAppend.h"
#include "foundation/Rounding.h"
#include "tests/support/Blocks.h"

#include <gtest/gtest.h>

#include <random>

namespace velorine::test {
namespace {

constexpr int int16 = sampleType::int16;

class TimeLine : public testing::Test {
protected:
    /// `frames` frames at `posStart`, from `timeStart` to `timeEnd`; without samples.
    void span(std::int64_t posStart, int frames, FxTime timeStart, FxTime timeEnd,
              int rate = 44100) {
        FxBlock block = markerOf(formatOf(int16, 2, rate), 0);
        block.last = frames;
        block.posStart = posStart;
        block.posEnd = posStart + frames;
        block.timeStart = timeStart;
        block.timeEnd = timeEnd;
        ring.push(block);
    }

    FxArena arena;
    FxRing ring;
};

TEST_F(TimeLine, AnEmptyRingStandsAtZero) {
    EXPECT_EQ(timeToFrame(ring, 123456), 0);
    EXPECT_EQ(frameToTime(ring, 99), 0);
    EXPECT_EQ(blockAtTime(ring, 5), nullptr);
}

TEST_F(TimeLine, ATimeInsideABlockIsLinear) {
    span(1000, 1152, 0, 261224);
    EXPECT_EQ(timeToFrame(ring, 130612), 1576);
    EXPECT_EQ(timeToFrame(ring, 0), 1000);
    EXPECT_EQ(timeToFrame(ring, 261224), 2152);
    EXPECT_EQ(frameToTime(ring, 1576), 130612);
}

TEST_F(TimeLine, TiesRoundAwayFromZero) {
    span(0, 1, 0, 2);
    EXPECT_EQ(timeToFrame(ring, 1), 1);
    FxRing negative;
    FxBlock block = markerOf(formatOf(int16, 2, 44100), 0);
    block.last = 2;
    block.posEnd = 2;
    block.timeStart = 0;
    block.timeEnd = 5;
    negative.push(block);
    EXPECT_EQ(frameToTime(negative, 1), 3); // 2.5
}

TEST_F(TimeLine, BeforeTheOldestBlockIsItsStart) {
    span(500, 100, 1000, 2000);
    EXPECT_EQ(timeToFrame(ring, 999), 500);
    EXPECT_EQ(frameToTime(ring, 499), 1000);
}

TEST_F(TimeLine, BehindTheEndTimeRunsOnAtTheNewestRate) {
    span(0, 480, 0, 100'000, 48000);
    span(480, 441, 100'000, 200'000, 44100);
    EXPECT_EQ(timeToFrame(ring, 200'000 + 10'000'000), 921 + 44100);
    EXPECT_EQ(timeToFrame(ring, 200'000 + 113), 921); // 0.498 of a frame
    EXPECT_EQ(timeToFrame(ring, 200'000 + 114), 922); // 0.503
}

TEST_F(TimeLine, BehindSkippedSilenceTimeRunsOnFromItsEnd) {
    span(0, 100, 0, 5'000'000, 48000); // half a second in 100 frames
    EXPECT_EQ(timeToFrame(ring, 5'000'000 + 10'000), 100 + 48);
}

TEST_F(TimeLine, SkippedSilenceIsWalkedThroughFaster) {
    span(0, 480, 0, 10'000'000, 48000);
    EXPECT_EQ(timeToFrame(ring, 5'000'000), 240);
    EXPECT_EQ(frameToTime(ring, 240), 5'000'000);
}

TEST_F(TimeLine, AnEmptyBlockWithATimeSpanHoldsNoFrame) {
    span(0, 480, 0, 100'000, 48000);
    span(480, 0, 100'000, 900'000, 48000);
    span(480, 480, 900'000, 1'000'000, 48000);
    EXPECT_EQ(timeToFrame(ring, 500'000), 480);
    EXPECT_EQ(frameToTime(ring, 480), 900'000);
}

TEST_F(TimeLine, BehindTheEndPositionsHaveTheTimeOfTheEnd) {
    span(0, 100, 0, 1000);
    EXPECT_EQ(frameToTime(ring, 100), 1000);
    EXPECT_EQ(frameToTime(ring, 5000), 1000);
}

TEST_F(TimeLine, AtABorderTheNewerBlockAnswers) {
    span(0, 100, 0, 1000);
    span(200, 100, 1000, 2000); // a jump on the frame axis shows who answered
    EXPECT_EQ(timeToFrame(ring, 1000), 200);
}

TEST_F(TimeLine, MarkersAreNoPlaceForATime) {
    span(0, 100, 0, 1000);
    span(100, 0, 1000, 1000);
    EXPECT_EQ(timeToFrame(ring, 1000), 100);
    EXPECT_EQ(timeToFrame(ring, 500), 50);
    EXPECT_EQ(frameToTime(ring, 100), 1000);
}

TEST_F(TimeLine, ARingOfOneMarkerRunsOnFromIt) {
    span(700, 0, 4000, 4000, 48000);
    EXPECT_EQ(timeToFrame(ring, 3000), 700);
    EXPECT_EQ(timeToFrame(ring, 4000), 700);
    EXPECT_EQ(timeToFrame(ring, 4000 + 10'000'000), 48700);
    EXPECT_EQ(frameToTime(ring, 700), 4000);
    EXPECT_EQ(frameToTime(ring, 9999), 4000);
}

TEST_F(TimeLine, FindsTheBlockAtATime) {
    span(0, 100, 1000, 2000);
    span(100, 100, 2000, 3000);
    EXPECT_EQ(blockAtTime(ring, 0), &ring.at(0));
    EXPECT_EQ(blockAtTime(ring, 1999), &ring.at(0));
    EXPECT_EQ(blockAtTime(ring, 2000), &ring.at(1));
    EXPECT_EQ(blockAtTime(ring, 99999), &ring.at(1));
}

TEST_F(TimeLine, AMarkersFormatCountsAtItsTime) {
    span(0, 100, 0, 1000, 44100);
    span(100, 0, 1000, 1000, 96000);
    EXPECT_EQ(blockAtTime(ring, 1000)->format.rate, 96000);
}

TEST_F(TimeLine, AWholeTrackMapsThereAndBackAtAnyRate) {
    std::mt19937 random{3};
    for (int round = 0; round < 200; ++round) {
        FxRing track;
        const int rate = 8000 + static_cast<int>(random() % 184001);
        std::int64_t frames = 0;
        const FxTime base = static_cast<FxTime>(random()) * 1000;
        while (track.count() < 40) {
            FxBlock block = markerOf(formatOf(int16, 2, rate), 0);
            block.last =
                static_cast<int>(random() % 4) == 0 ? 0 : 1 + static_cast<int>(random() % 5000);
            block.timeStart = base + ticksPerSecond * frames / rate;
            frames += block.frames();
            block.timeEnd = base + ticksPerSecond * frames / rate;
            appendTo(track, block);
        }
        for (int i = 0; i < 500; ++i) {
            const std::int64_t p = static_cast<std::int64_t>(random()) % frames;
            ASSERT_EQ(timeToFrame(track, frameToTime(track, p)), p) << "rate " << rate;
        }
        ASSERT_EQ(timeToFrame(track, frameToTime(track, 0)), 0);
        ASSERT_EQ(timeToFrame(track, frameToTime(track, frames)), frames);
    }
}

// -- The walk from where the last one ended ----------------------------------------------------

TEST_F(TimeLine, TheWalkIsHeldToTheEnds) {
    span(100, 50, 1000, 2000);
    span(150, 50, 2000, 3000);
    std::int32_t cursor = 0;
    EXPECT_EQ(frameToTime(ring, 99, cursor), 1000);
    EXPECT_EQ(cursor, -1);
    EXPECT_EQ(frameToTime(ring, 200, cursor), 3000);
    EXPECT_EQ(cursor, 2);
    EXPECT_EQ(frameToTime(ring, 199, cursor), 2980);
    EXPECT_EQ(cursor, 1);
    EXPECT_EQ(frameToTime(ring, 100, cursor), 1000);
    EXPECT_EQ(cursor, 0);
}

TEST_F(TimeLine, TheWalkPassesMarkersWithoutDividing) {
    span(0, 50, 0, 1000);
    span(50, 0, 1000, 5000);
    span(50, 0, 5000, 5000);
    std::int32_t cursor = 1;
    EXPECT_EQ(frameToTime(ring, 50, cursor), 5000); // past the last position: the newest end
    EXPECT_EQ(cursor, 3);
    EXPECT_EQ(frameToTime(ring, 49, cursor), 980);
    EXPECT_EQ(cursor, 0);
}

TEST_F(TimeLine, AMarkerThatIsWalkedDownToHasTheTimeOfItsStart) {
    span(0, 50, 0, 1000);
    span(50, 0, 1000, 5000);
    span(60, 50, 5000, 6000);
    std::int32_t cursor = 2;
    EXPECT_EQ(frameToTime(ring, 55, cursor), 1000);
    EXPECT_EQ(cursor, 1);
}

TEST_F(TimeLine, TheWalkSurvivesPopsAndCuts) {
    for (int i = 0; i < 20; ++i)
        span(100 * i, 100, 1000 * i, 1000 * i + 1000);
    std::int32_t cursor = 0;
    EXPECT_EQ(frameToTime(ring, 1850, cursor), 18500);
    ring.truncate(450);
    EXPECT_EQ(frameToTime(ring, 449, cursor), 4490);
    EXPECT_EQ(frameToTime(ring, 1850, cursor), 4500);
    ring.pop();
    ring.pop();
    EXPECT_EQ(frameToTime(ring, 250, cursor), 2500);
    EXPECT_EQ(cursor, 2);
}

TEST_F(TimeLine, TheWalkAgreesWithTheDefinitionFromAnyPlace) {
    std::mt19937 random{4};
    for (int round = 0; round < 300; ++round) {
        FxRing blocks;
        FxTime time = 0;
        for (int i = 0; i < 12; ++i) {
            FxBlock block = markerOf(formatOf(int16, 2, 48000), time);
            block.last = 1 + static_cast<int>(random() % 4);
            block.timeEnd = time += static_cast<FxTime>(random() % 1000);
            appendTo(blocks, block);
        }
        for (std::int64_t p = -2; p < blocks.end() + 2; ++p) {
            std::int32_t cursor = static_cast<std::int32_t>(random() % 20) - 3;
            FxTime expected = blocks.newest().timeEnd;
            if (p < 0) expected = 0;
            for (int i = 0; i < blocks.count(); ++i) {
                const FxBlock& block = blocks.at(i);
                if (block.posStart <= p && p < block.posEnd)
                    expected = block.timeStart + scaledRounded(block.timeEnd - block.timeStart,
                                                               p - block.posStart, block.frames());
            }
            ASSERT_EQ(frameToTime(blocks, p, cursor), expected);
        }
    }
}

} // namespace
} // namespace velorine::test
