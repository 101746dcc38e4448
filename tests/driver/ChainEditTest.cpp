#include "tests/driver/ScriptedChain.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>

namespace velorine::test {
namespace {

using Does = ScriptedStage::Does;

class ChainEdit : public testing::Test, protected ChainRig {
protected:
    ChainEdit() { chain.start(); }

    /// A second and a half ahead of the speakers.
    void fill() {
        for (int i = 0; i < 75; ++i)
            write(1000);
        clock.advance(50);
    }

    bool locksAreFree() {
        return !chain.editLock.heldByCaller() && !chain.pumpLock.heldByCaller() &&
               chain.editLock.users() == 0;
    }
};

TEST_F(ChainEdit, WhatIsHeardStaysTheSame) {
    fill();
    { FxChainEdit edit{chain, 80, nullptr}; }
    chain.drain(-1);
    clock.advance(100);
    EXPECT_EQ(heard(), all());
}

TEST_F(ChainEdit, CutsBehindItsMargin) {
    fill();
    FxChainEdit edit{chain, 80, nullptr};
    const std::int64_t position = chain.output.position();
    EXPECT_EQ(edit.margin(), 80);
    EXPECT_EQ(chain.output.writtenEnd(), position + 80 * 48);
    EXPECT_EQ(ring(2).end(), position + 80 * 48);
    EXPECT_EQ(chain.last.nextFrame, position + 80 * 48);
    EXPECT_EQ(edit.rewoundTo(), (ring(2).end() * ticksPerSecond + 24'000) / 48'000);
}

TEST_F(ChainEdit, MarginsOfZeroAndOneLeaveNone) {
    for (const int margin : {0, 1}) {
        fill();
        FxChainEdit edit{chain, margin, nullptr};
        EXPECT_EQ(chain.output.writtenEnd(), chain.output.position());
    }
}

TEST_F(ChainEdit, MinusOneTakesTheEnginesMargin) {
    fill();
    chain.flushMs.store(60);
    FxChainEdit edit{chain, -1, nullptr};
    EXPECT_EQ(edit.margin(), 60);
}

TEST_F(ChainEdit, AMarginThatIsNotThereIsFilledFirst) {
    for (int i = 0; i < 75; ++i)
        write(1000); // the pump has not run yet
    FxChainEdit edit{chain, 120, nullptr};
    EXPECT_EQ(edit.margin(), 120);
    EXPECT_GE(chain.output.bufferedMs(), 120);
}

TEST_F(ChainEdit, AMarginThatCanNotBeHadIsLess) {
    write(2400);
    FxChainEdit edit{chain, 120, nullptr};
    EXPECT_EQ(edit.margin(), 50);
    EXPECT_EQ(ring(2).end(), 2400);
}

TEST_F(ChainEdit, StopsAtItsStage) {
    fill();
    const std::int64_t inputEnd = ring(0).end();
    const int seeks = chain.middle.seeks;
    FxChainEdit edit{chain, 80, &chain.middle};
    EXPECT_EQ(ring(0).end(), inputEnd);
    EXPECT_EQ(chain.middle.seeks, seeks + 2);
    EXPECT_LT(ring(1).end(), inputEnd);
    EXPECT_EQ(ring(1).end(), ring(2).end());
}

TEST_F(ChainEdit, WithoutAStageToStopAtTheInputGoesBackToo) {
    fill();
    FxChainEdit edit{chain, 80, nullptr};
    EXPECT_EQ(ring(0).end(), ring(2).end());
    EXPECT_EQ(chain.input.nextInput, ring(0).end());
    EXPECT_EQ(chain.input.hostRing.end(), 75'000);
}

TEST_F(ChainEdit, ADeepEditOfAShortQueueCutsNothing) {
    fill();
    const std::int64_t before = chain.output.writtenEnd();
    FxChainEdit edit{chain, 9999, &chain.middle};
    EXPECT_GE(chain.output.writtenEnd(), before);
}

TEST_F(ChainEdit, GivesEverythingBack) {
    fill();
    kernel().setCurrentPriority(1);
    {
        FxChainEdit edit{chain, 80, nullptr};
        EXPECT_EQ(kernel().currentPriority(), priorityHighest);
        EXPECT_TRUE(chain.editLock.heldByCaller());
        EXPECT_TRUE(chain.pumpLock.heldByCaller());
        EXPECT_TRUE(chain.editRequested.isSet());
    }
    EXPECT_EQ(kernel().currentPriority(), 1);
    EXPECT_TRUE(locksAreFree());
    EXPECT_FALSE(chain.editRequested.isSet());
}

TEST_F(ChainEdit, CommittingTwiceIsOnce) {
    fill();
    FxChainEdit edit{chain, 80, nullptr};
    edit.commit();
    EXPECT_TRUE(locksAreFree());
    const std::int64_t before = chain.output.writtenEnd();
    edit.commit();
    EXPECT_EQ(chain.output.writtenEnd(), before);
}

TEST_F(ChainEdit, LendsThePlaybackThreadItsPriority) {
    fill();
    chain.playbackThread.setPriority(priorityNormal);
    kernel().setCurrentPriority(7);
    {
        FxChainEdit edit{chain, 80, nullptr};
        EXPECT_EQ(chain.playbackThread.priority(), 7);
    }
    EXPECT_EQ(chain.playbackThread.priority(), priorityNormal);
}

TEST_F(ChainEdit, AnExceptionInsideGivesEverythingBack) {
    fill();
    kernel().setCurrentPriority(1);
    EXPECT_THROW(
        {
            FxChainEdit edit(chain, 80, nullptr);
            throw std::runtime_error("a dialog failed");
        },
        std::runtime_error);
    EXPECT_EQ(kernel().currentPriority(), 1);
    EXPECT_TRUE(locksAreFree());
    EXPECT_FALSE(chain.editRequested.isSet());
    chain.drain(-1);
    clock.advance(100);
    EXPECT_EQ(heard(), all());
}

TEST_F(ChainEdit, AStageThatFailsAtItsBeginGivesEverythingBack) {
    for (int i = 0; i < 75; ++i)
        write(1000);
    kernel().setCurrentPriority(1);
    const int workers = chain.playbackThread.priority();
    chain.middle.does = Does::fail;
    EXPECT_THROW(FxChainEdit(chain, 80, nullptr), int);
    chain.middle.does = Does::passOn;
    EXPECT_EQ(kernel().currentPriority(), 1);
    EXPECT_EQ(chain.playbackThread.priority(), workers);
    EXPECT_TRUE(locksAreFree());
    EXPECT_FALSE(chain.editRequested.isSet());
    chain.wake();
    chain.drain(-1);
    clock.advance(100);
    EXPECT_EQ(heard(), all());
}

TEST_F(ChainEdit, OneInsideAnotherTakesAndGivesNothingOfIts) {
    fill();
    {
        FxChainEdit outer{chain, 80, nullptr};
        { FxChainEdit inner{chain, 80, nullptr}; }
        EXPECT_TRUE(chain.editLock.heldByCaller());
        EXPECT_TRUE(chain.pumpLock.heldByCaller());
    }
    EXPECT_TRUE(locksAreFree());
    chain.drain(-1);
    clock.advance(100);
    EXPECT_EQ(heard(), all());
}

TEST_F(ChainEdit, TheChainStandsMeanwhile) {
    fill();
    FxChainEdit edit{chain, 80, nullptr};
    const std::size_t calls = chain.log.size();
    clock.advance(300);
    EXPECT_EQ(chain.log.size(), calls);
}

TEST_F(ChainEdit, AThreadThatPumpsLeavesAtOnce) {
    for (int i = 0; i < 400; ++i)
        write(1000);
    clock.advance(5000);
    const std::int64_t before = clock.ticks();
    FxChainEdit edit{chain, 1, nullptr};
    EXPECT_LE(clock.ticks() - before, 10'000);
}

TEST_F(ChainEdit, WithoutAThreadItDoesNothing) {
    chain.end();
    write(1000);
    {
        FxChainEdit edit{chain, 80, nullptr};
        EXPECT_EQ(edit.rewoundTo(), 0);
        EXPECT_EQ(edit.margin(), 0);
    }
    EXPECT_TRUE(locksAreFree());
    EXPECT_FALSE(chain.editRequested.isSet());
}

TEST_F(ChainEdit, OverEmptyRingsItIsHarmless) {
    { FxChainEdit edit{chain, 80, nullptr}; }
    { FxChainEdit edit{chain, 1, &chain.middle}; }
    { FxChainEdit edit{chain, 9999, nullptr}; }
    for (int i = 0; i < 30; ++i)
        write(1000);
    chain.drain(-1);
    clock.advance(100);
    EXPECT_EQ(heard(), all());
}

TEST_F(ChainEdit, AnEditAfterADrySpellIsHarmless) {
    write(10'000);
    chain.drain(-1);
    clock.advance(500);
    { FxChainEdit edit{chain, 80, nullptr}; }
    write(10'000);
    chain.drain(-1);
    clock.advance(500);
    EXPECT_EQ(heard(), all());
}

TEST_F(ChainEdit, RandomEditsLoseAndRepeatNothing) {
    std::mt19937 random{7};
    for (int step = 0; step < 300; ++step) {
        for (int i = static_cast<int>(random() % 4); i > 0; --i)
            write(1 + static_cast<int>(random() % 4000));
        if (random() % 4 != 0) clock.advance(static_cast<int>(random() % 80));
        FxStage* const stops[] = {nullptr, &chain.middle, &chain.last, &chain.input};
        if (random() % 2 == 0)
            FxChainEdit(chain, 20 + static_cast<int>(random() % 400), stops[random() % 4]).commit();
        chain.checkInvariants();
    }
    chain.drain(-1);
    clock.advance(100);
    // Late audio may be silent, but nothing is heard twice, and nothing out of order.
    const auto frames = heard();
    for (std::size_t i = 1; i < frames.size(); ++i)
        ASSERT_LT(frames[i - 1], frames[i]);
    EXPECT_EQ(frames.back(), written);
    EXPECT_EQ(frames.size(), static_cast<std::size_t>(written));
}

TEST_F(ChainEdit, WhileAFormatPlaysOutItReturnsAtOnce) {
    for (int i = 0; i < 60; ++i)
        write(1000);
    clock.advance(50);
    write(20'000, 44100);
    clock.advance(300);
    const std::int64_t before = clock.ticks();
    { FxChainEdit edit{chain, 1, nullptr}; }
    EXPECT_LE(clock.ticks() - before, 500'000);
    chain.drain(-1);
    clock.advance(300);
    EXPECT_EQ(heard(), all());
}

TEST_F(ChainEdit, OnADeviceThatNeverPlaysItReturns) {
    sound.playFails = true;
    for (int i = 0; i < 200; ++i)
        write(1000);
    clock.advance(3000);
    const std::int64_t before = clock.ticks();
    { FxChainEdit edit{chain, 80, nullptr}; }
    EXPECT_LE(clock.ticks() - before, 1'000'000);
}

// -- The way back, by itself -------------------------------------------------------------------

TEST_F(ChainEdit, DiscardingLeavesTheEndOfEachAxis) {
    fill();
    FxChainEdit edit{chain, 1, nullptr};
    const std::int64_t end = ring(2).end();
    chain.rewindStopStage = nullptr;
    chain.rewind(1, FxChainHost::discardAll, true);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(ring(i).count(), 1) << i;
        EXPECT_TRUE(ring(i).newest().empty()) << i;
        EXPECT_EQ(ring(i).end(), end) << i;
    }
    EXPECT_EQ(chain.middle.resets, 1);
    EXPECT_EQ(chain.last.resets, 1);
    edit.commit();
    chain.drain(-1);
    clock.advance(100);
    EXPECT_EQ(heard(), all());
}

TEST_F(ChainEdit, WhereNothingWouldBeCutNothingIsTouched) {
    write(4800);
    clock.advance(5);
    FxChainEdit edit{chain, 1, nullptr};
    const int seeks = chain.last.seeks;
    EXPECT_EQ(chain.rewind(5000, 0, false), chain.output.timeAt(chain.output.writtenEnd()));
    EXPECT_EQ(chain.last.seeks, seeks);
    chain.rewind(5000, 0, true);
    EXPECT_EQ(chain.last.seeks, seeks + 1);
}

TEST_F(ChainEdit, AHugeDistanceDoesNotOverflow) {
    fill();
    FxChainEdit edit{chain, 80, nullptr};
    EXPECT_EQ(chain.rewind(100'000, 0, true), chain.output.timeAt(chain.output.writtenEnd()));
}

} // namespace
} // namespace velorine::test
