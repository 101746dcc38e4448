#include "stages/TailStage.h"

#include "tests/stages/TailRig.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

constexpr int int16 = sampleType::int16;

class Tail : public testing::Test, protected TailRig {
protected:
    void add(int frames, int first, FxTime timeStart, FxTime timeEnd) {
        appendTo(ring, countingBlock(arena, frames, first, timeStart, timeEnd));
    }
};

// -- The stream --------------------------------------------------------------------------------

TEST_F(Tail, BlocksGoOnByReferenceWhole) {
    add(5000, 0, 0, 100); // more than is asked for
    ASSERT_TRUE(process());
    EXPECT_EQ(out.frames(), 5000);
    EXPECT_EQ(out.buffer.get(), ring.at(0).buffer.get());
    EXPECT_EQ(out.srcStart, 0);
    EXPECT_EQ(out.srcEnd, std::int64_t{5000} << 16);
    EXPECT_EQ(stage.framesOut, 5000);
    EXPECT_EQ(stage.nextFrame, 5000);
    EXPECT_FALSE(process());
}

TEST_F(Tail, DoublesAtAGainOfOneGoOnUntouched) {
    appendTo(ring, blockOf<double>(arena, formatOf(sampleType::float64, 2, 48000),
                                   {0.1, -0.2, 3.0, -4.0}, 0, 100));
    stage.gain.store(1.0);
    ASSERT_TRUE(process());
    EXPECT_EQ(out.format.type, sampleType::float64);
    EXPECT_EQ(out.buffer.get(), ring.at(0).buffer.get());
    EXPECT_EQ(samplesOf<double>(out), (std::vector<double>{0.1, -0.2, 3.0, -4.0}));
}

TEST_F(Tail, AnEmptyRingIsNoError) {
    EXPECT_FALSE(process());
    EXPECT_EQ(stage.framesOut, 0);
    EXPECT_EQ(stage.nextFrame, 0);
}

TEST_F(Tail, AHoleOfAThousandFramesIsTwoBlocksOfSilence) {
    add(10, 1, 0, 100);
    FxBlock late = countingBlock(arena, 10, 50, 10'100, 10'200);
    late.posStart = 1010;
    late.posEnd = 1020;
    ring.push(late);
    ASSERT_TRUE(process());
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<std::int16_t>(out), std::vector<std::int16_t>(576));
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<std::int16_t>(out), std::vector<std::int16_t>(424));
    EXPECT_EQ(out.timeEnd, 10'100);
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<std::int16_t>(out), counting<std::int16_t>(10, 50));
    EXPECT_EQ(stage.framesOut, 1020);
}

TEST_F(Tail, SeekingMovesTheReadHeadAndTheCount) {
    add(10, 1, 0, 100);
    add(10, 11, 100, 200);
    process();
    process();
    stage.seek(-13, FxPos::fromDouble(7.5));
    EXPECT_EQ(stage.nextFrame, 7);
    EXPECT_EQ(stage.framesOut, 7);
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<std::int16_t>(out), counting<std::int16_t>(3, 8));
    EXPECT_EQ(out.timeStart, 70);
}

TEST_F(Tail, ResettingChangesNothing) {
    add(10, 1, 0, 100);
    process();
    stage.reset();
    EXPECT_EQ(stage.nextFrame, 10);
    EXPECT_EQ(stage.framesOut, 10);
}

TEST_F(Tail, NeedsTheInputUpToTheNextWholeFrame) {
    EXPECT_EQ(stage.inputEndFor(-5, FxPos::fromDouble(7.25)), 8);
    EXPECT_EQ(stage.inputEndFor(-5, FxPos::fromDouble(7.0)), 7);
    EXPECT_EQ(stage.inputStartFor(-5, FxPos::fromDouble(7.25)), 7);
}

// -- Marking the position ----------------------------------------------------------------------

TEST_F(Tail, WithNothingWantedItMarksItsPlace) {
    add(10, 1, 1000, 1100);
    stage.seek(0, FxPos::fromFrame(4));
    ASSERT_TRUE(process(0));
    EXPECT_TRUE(out.empty());
    EXPECT_TRUE(static_cast<bool>(out.buffer));
    EXPECT_EQ(out.format, formatOf(int16, 2, 48000));
    EXPECT_EQ(out.timeStart, 1040);
    EXPECT_EQ(out.timeEnd, 1040);
    EXPECT_EQ(out.srcStart, std::int64_t{4} << 16);
    EXPECT_EQ(out.srcEnd, std::int64_t{4} << 16);
    EXPECT_TRUE(stage.standing);
    EXPECT_EQ(stage.framesOut, 0);
    EXPECT_EQ(stage.nextFrame, 4);
}

TEST_F(Tail, TheTimeOfAMarkIsHeldToTheRing) {
    process(0);
    EXPECT_EQ(out.timeStart, 0) << "an empty ring";
    add(10, 1, 1000, 1100);
    stage.seek(0, FxPos::fromFrame(10));
    process(0);
    EXPECT_EQ(out.timeStart, 1100);
    stage.seek(0, FxPos::fromFrame(99));
    process(0);
    EXPECT_EQ(out.timeStart, 1100);
    stage.seek(0, FxPos::fromFrame(-5));
    process(0);
    EXPECT_EQ(out.timeStart, 1000);
}

// -- The pause word ----------------------------------------------------------------------------

TEST_F(Tail, IdleItDeliversEmptyBlocksAndReadsNothing) {
    add(10, 1, 0, 100);
    for (const int word : {2, 3, 6, -1}) {
        stage.pausedBits.store(word);
        ASSERT_TRUE(process());
        EXPECT_TRUE(out.empty()) << word;
        EXPECT_EQ(out.format, formatOf(int16, 2, 48000));
        EXPECT_EQ(out.srcStart, 0);
        EXPECT_TRUE(stage.standing);
    }
    EXPECT_EQ(stage.nextFrame, 0);
    stage.pausedBits.store(0);
    ASSERT_TRUE(process());
    EXPECT_EQ(out.frames(), 10);
}

TEST_F(Tail, FollowingItReadsOn) {
    add(10, 1, 0, 100);
    stage.pausedBits.store(1);
    stage.gain.store(0.5); // for the stream alone
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<std::int16_t>(out), counting<std::int16_t>(10, 1));
    EXPECT_FALSE(process());
}

class TailFollow : public Tail {
protected:
    /// Ten seconds in blocks of 10 ms, at 1000 frames a second; the stage has read the first
    /// second.
    TailFollow() {
        for (int i = 0; i < 1000; ++i)
            appendTo(ring, countingBlock(arena, 10, 0, 100'000 * i, 100'000 * i + 100'000, 1000));
        for (int i = 0; i < 100; ++i)
            process();
        stage.pausedBits.store(1);
    }
    std::int64_t headAfter(FxTime target) {
        stage.setTargetTime(target);
        process();
        return stage.nextFrame;
    }
};

TEST_F(TailFollow, ATargetASecondAheadIsNoJump) {
    EXPECT_EQ(headAfter(10'000'000 + 10'000'000), 1010);
}

TEST_F(TailFollow, ATargetJustBelowTheLeastDistanceIsNoJump) {
    EXPECT_EQ(headAfter(10'000'000 + 10'999'999), 1010);
}

TEST_F(TailFollow, ATargetFurtherAheadIsJumpedTo) {
    EXPECT_EQ(headAfter(10'000'000 + 12'000'000), 2210);
    EXPECT_EQ(stage.framesOut, 1010) << "the output doesn't jump";
}

TEST_F(TailFollow, ATargetAtTheLeastDistanceIsJumpedTo) {
    EXPECT_EQ(headAfter(10'000'000 + 11'000'000), 2110);
}

TEST_F(TailFollow, ATargetBehindIsNeverJumpedTo) {
    EXPECT_EQ(headAfter(1'000'000), 1010);
    EXPECT_EQ(headAfter(-50'000'000), 1020);
    EXPECT_EQ(headAfter(0), 1030);
}

TEST_F(TailFollow, ATargetBehindTheRingIsItsEnd) {
    stage.setTargetTime(900'000'000);
    EXPECT_FALSE(process());
    EXPECT_EQ(stage.nextFrame, 10'000);
}

TEST_F(TailFollow, OutsideOfThatWordNothingIsFollowed) {
    stage.pausedBits.store(0);
    EXPECT_EQ(headAfter(10'000'000 + 50'000'000), 1010);
    stage.pausedBits.store(2);
    EXPECT_EQ(headAfter(10'000'000 + 50'000'000), 1010);
}

TEST_F(Tail, TheDriverHoldsItWhileItIsPausedAndNoBeepIsDue) {
    EXPECT_FALSE(stage.held());
    stage.pausedBits.store(1);
    EXPECT_TRUE(stage.held());
    stage.beepPending.store(2);
    EXPECT_FALSE(stage.held());
    stage.pausedBits.store(0);
    EXPECT_FALSE(stage.held());
}

// -- Lookups for others ------------------------------------------------------------------------

TEST_F(Tail, BeforeItHasRunThereIsNothingToLookUp) {
    EXPECT_EQ(stage.firstUsableFrame(7, 90), 7);
    EXPECT_EQ(stage.timeToFrame(12345), 0);
}

TEST_F(Tail, LooksUpFramesAndRunsInTheRingItRead) {
    add(10, 1, 1000, 1100);
    add(10, 11, 1100, 1200);
    appendTo(ring, countingBlock(arena, 10, 0, 1200, 1200, 44100)); // of no duration
    process();
    EXPECT_EQ(stage.firstUsableFrame(3, 90), 20);
    EXPECT_EQ(stage.firstUsableFrame(3, 12), 12);
    EXPECT_EQ(stage.timeToFrame(999), 0);
    EXPECT_EQ(stage.timeToFrame(1050), 5);
    EXPECT_EQ(stage.timeToFrame(1200), 30);
    EXPECT_EQ(stage.timeToFrame(5000), 30);
}

} // namespace
} // namespace velorine::test
