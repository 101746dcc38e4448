#include "tests/driver/ScriptedChain.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

using Does = ScriptedStage::Does;

/// As inside an edit: its locks are held, and the playback thread stands.
class Prefill : public testing::Test, protected ChainRig {
protected:
    int prefill(int ms) {
        const RecursiveLock::Scope editing{chain.editLock};
        const RecursiveLock::Scope pumping{chain.pumpLock};
        return chain.prefill(ms);
    }
};

TEST_F(Prefill, WithoutAThreadThereIsNothing) {
    write(48'000);
    EXPECT_EQ(prefill(200), 0);
    EXPECT_EQ(ring(0).end(), 0);
}

TEST_F(Prefill, QueuesAsMuchAsIsAskedFor) {
    chain.start();
    for (int i = 0; i < 50; ++i)
        write(1000);
    const int ms = prefill(250);
    EXPECT_GE(ms, 250);
    EXPECT_LE(ms, 250 + 21);
    EXPECT_TRUE(chain.output.device.running.isSet());
    EXPECT_EQ(clock.ticks(), 0);
}

TEST_F(Prefill, NeverQueuesMoreThan330Ms) {
    chain.start();
    for (int i = 0; i < 50; ++i)
        write(1000);
    const int ms = prefill(100'000);
    EXPECT_GE(ms, 330);
    EXPECT_LE(ms, 330 + 21);
}

TEST_F(Prefill, AskedForNothingItOnlyTells) {
    chain.start();
    for (int i = 0; i < 50; ++i)
        write(1000);
    const RecursiveLock::Scope editing{chain.editLock};
    const RecursiveLock::Scope pumping{chain.pumpLock};
    EXPECT_EQ(chain.prefill(1), 0);
    EXPECT_EQ(ring(0).end(), 0);
    chain.prefill(200);
    const std::int64_t end = ring(0).end();
    EXPECT_GE(chain.prefill(0), 200);
    EXPECT_GE(chain.prefill(-1), 200);
    EXPECT_EQ(ring(0).end(), end);
}

TEST_F(Prefill, EndsWhenTheChainHasNoMore) {
    chain.start();
    write(4800);
    EXPECT_EQ(prefill(300), 100);
    EXPECT_EQ(clock.ticks(), 0);
}

TEST_F(Prefill, EndsWhenTheChainStands) {
    chain.start();
    for (int i = 0; i < 50; ++i)
        write(1000);
    chain.middle.does = Does::stand;
    prefill(300);
    EXPECT_EQ(ring(2).end(), 0);
    EXPECT_EQ(clock.ticks(), 0);
}

TEST_F(Prefill, LittleThatTheChainHasIsStartedWhereItStands) {
    chain.start();
    write(500);
    chain.requestService();
    prefill(300);
    EXPECT_TRUE(chain.output.device.running.isSet());
}

TEST_F(Prefill, GivesUpAfterTwoSeconds) {
    chain.start();
    sound.playFails = true;
    chain.middle.onProcess = [this] { clock.advance(100); };
    for (int i = 0; i < 200; ++i)
        write(100);
    prefill(300);
    EXPECT_GT(clock.ticks(), 20'000'000);
    EXPECT_LE(clock.ticks(), 24'000'000);
}

TEST_F(Prefill, TheWrapOfTheTickCountIsNoTimeOut) {
    clock.tickStart = 0xffffffff - 10;
    chain.start();
    chain.middle.onProcess = [this] { clock.advance(1); };
    for (int i = 0; i < 50; ++i)
        write(1000);
    EXPECT_GE(prefill(300), 300);
}

TEST_F(Prefill, RaisesThePriorityAndGivesItBack) {
    chain.start();
    kernel().setCurrentPriority(priorityNormal);
    int seen = -99;
    chain.middle.onProcess = [&] { seen = kernel().currentPriority(); };
    for (int i = 0; i < 50; ++i)
        write(1000);
    prefill(50);
    EXPECT_EQ(seen, 15); // until an engine says otherwise
    EXPECT_EQ(kernel().currentPriority(), priorityNormal);

    chain.prefillPriority = priorityHighest;
    prefill(300);
    EXPECT_EQ(kernel().currentPriority(), priorityNormal);
    chain.end();
}

TEST_F(Prefill, WithMuchQueuedThePriorityGoesBackEarly) {
    chain.start();
    std::vector<int> seen;
    chain.middle.onProcess = [&] { seen.push_back(kernel().currentPriority()); };
    for (int i = 0; i < 50; ++i)
        write(1000);
    prefill(300);
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen.front(), 15);
    EXPECT_EQ(seen.back(), 0);
    chain.end();
}

TEST_F(Prefill, ADeviceThatNeverPlaysIsNotWaitedForOnceItIsFull) {
    chain.start();
    sound.playFails = true;
    for (int i = 0; i < 200; ++i)
        write(1000);
    clock.advance(3000);
    const std::int64_t before = clock.ticks();
    prefill(300);
    EXPECT_LE(clock.ticks() - before, 1'000'000);
}

TEST_F(Prefill, AFileNeedsNone) {
    chain.output.recordSwitch = true;
    chain.output.recorder.recordmode.store(1);
    chain.output.recorder.setPath("file.wav", true);
    chain.start();
    write(48'000);
    EXPECT_EQ(prefill(200), 0);
    EXPECT_EQ(ring(0).end(), 0);
}

// -- Playing out -------------------------------------------------------------------------------

using Drain = Prefill;

TEST_F(Drain, WaitsUntilAllHasBeenPlayed) {
    chain.start();
    for (int i = 0; i < 50; ++i)
        write(1000);
    EXPECT_TRUE(chain.drain(-1));
    EXPECT_EQ(chain.output.bufferedMs(), 0);
    EXPECT_GE(clock.ticks(), 10'400'000);
    EXPECT_LE(clock.ticks(), 11'500'000);
    clock.advance(100);
    EXPECT_EQ(heard(), all());
}

TEST_F(Drain, WhatTheChainHasNotLookedAtYetIsWaitedFor) {
    chain.start();
    clock.advance(10); // it has found nothing
    write(20'000);
    EXPECT_TRUE(chain.drain(-1));
    clock.advance(100);
    EXPECT_EQ(heard(), all());
}

TEST_F(Drain, LittleThatIsQueuedIsPlayedToo) {
    chain.start();
    write(100);
    EXPECT_TRUE(chain.drain(5000));
    clock.advance(200);
    EXPECT_EQ(heard(), all());
}

TEST_F(Drain, WithNothingToPlayItReturns) {
    chain.start();
    EXPECT_TRUE(chain.drain(-1));
    EXPECT_LE(clock.ticks(), 100'000);
}

TEST_F(Drain, TheTimeRunsOut) {
    chain.start();
    for (int i = 0; i < 500; ++i)
        write(1000);
    EXPECT_FALSE(chain.drain(5000));
    EXPECT_GE(clock.ticks(), 50'000'000);
    EXPECT_LE(clock.ticks(), 51'000'000);
}

TEST(DrainOfTwoFormats, TheTimeRunsOutWhileTheFirstOnePlaysOut) {
    for (int timeoutMs = 100; timeoutMs <= 1500; timeoutMs += 100) {
        ChainRig rig;
        rig.chain.start();
        for (int i = 0; i < 60; ++i)
            rig.write(1000);
        for (int i = 0; i < 60; ++i)
            rig.write(1000, 44100);
        rig.clock.advance(50);
        const std::int64_t before = rig.clock.ticks();
        EXPECT_FALSE(rig.chain.drain(timeoutMs));
        EXPECT_LE(rig.clock.ticks() - before, (timeoutMs + 60) * 10'000) << timeoutMs;
    }
}

TEST_F(Drain, WithoutAThreadItReturns) {
    write(48'000);
    EXPECT_TRUE(chain.drain(-1));
}

TEST_F(Drain, AChainThatStandsIsPlayedOutToThere) {
    chain.start();
    for (int i = 0; i < 10; ++i)
        write(1000);
    clock.advance(1);
    chain.last.isHeld = true;
    write(50'000);
    EXPECT_TRUE(chain.drain(-1));
    clock.advance(200);
    EXPECT_LT(heard().size(), 20'000u);
}

TEST_F(Drain, ADeviceThatNeverPlaysEndsItsPatience) {
    chain.start();
    sound.playFails = true;
    for (int i = 0; i < 200; ++i)
        write(1000);
    clock.advance(1000);
    const std::int64_t before = clock.ticks();
    EXPECT_FALSE(chain.drain(5000));
    EXPECT_LE(clock.ticks() - before, 51'000'000);
}

TEST_F(Drain, AVeryLowRateEndsItsPatience) {
    chain.start();
    write(5000, 100);
    clock.advance(1000);
    const std::int64_t before = clock.ticks();
    EXPECT_FALSE(chain.drain(2000));
    EXPECT_LE(clock.ticks() - before, 21'000'000);
}

} // namespace
} // namespace velorine::test
