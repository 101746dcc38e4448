#include "tests/driver/ScriptedChain.h"

#include "chain/RingAppend.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

using Does = ScriptedStage::Does;
using Log = std::vector<std::string>;

/// Pumps on the test's own thread: it holds the lock, so the playback thread stands.
class Pump : public testing::Test, protected ChainRig {
protected:
    Pump() {
        chain.start();
        chain.log.clear();
        pumping.moveTo(chain.pumpLock);
    }
    void TearDown() override { pumping.giveBack(); }

    bool pump() { return chain.pump(false); }

    RecursiveLock::Scope pumping;
};

/// Lets the playback thread pump.
class Playback : public testing::Test, protected ChainRig {
protected:
    Playback() {
        chain.start();
        chain.log.clear();
    }
};

TEST_F(Pump, AsksFromTheEndBackAndGoesForwardFromTheNearestThatDelivers) {
    write(100);
    EXPECT_TRUE(pump());
    EXPECT_EQ(chain.log, (Log{"last", "middle", "middle", "last"}));
    EXPECT_EQ(ring(0).end(), 100);
    EXPECT_EQ(ring(1).end(), 100);
    EXPECT_EQ(ring(2).end(), 100);
    EXPECT_EQ(chain.chainEndPosition, 100);
}

TEST_F(Pump, DoesNotGoBackFurtherThanNeeded) {
    write(100);
    chain.last.does = Does::nothing;
    EXPECT_TRUE(pump());
    chain.last.does = Does::passOn;
    chain.log.clear();
    EXPECT_TRUE(pump());
    EXPECT_EQ(chain.log, (Log{"last"}));
}

TEST_F(Pump, AsksFor1152FramesAtATime) {
    write(100);
    pump();
    for (const int frames : chain.middle.asked)
        EXPECT_EQ(frames, 1152);
    for (const int frames : chain.last.asked)
        EXPECT_EQ(frames, 1152);
}

TEST_F(Pump, WithNothingToPullItDoesNothing) {
    EXPECT_FALSE(pump());
    EXPECT_EQ(chain.log, (Log{"last", "middle"}));
    EXPECT_FALSE(chain.chainBlocked.load());
}

TEST_F(Pump, AStageThatDeliversNothingEndsTheStepButNotTheWork) {
    write(100);
    chain.last.does = Does::nothing;
    EXPECT_TRUE(pump());
    EXPECT_EQ(ring(1).end(), 100);
    EXPECT_EQ(ring(2).end(), 0);
    EXPECT_FALSE(pump());
}

TEST_F(Pump, WhatReachesTheEndIsServedAtOnce) {
    write(100);
    pump();
    EXPECT_EQ(chain.output.writtenEnd(), 100);
}

TEST_F(Pump, TheOutputComesFirst) {
    write(5000);
    pump(); // the output takes 4608 frames of the block
    chain.log.clear();
    EXPECT_TRUE(pump());
    EXPECT_TRUE(chain.log.empty());
    EXPECT_EQ(chain.output.writtenEnd(), 5000);
}

TEST_F(Pump, AStageThatStandsBlocksTheChain) {
    write(100);
    pump();
    chain.middle.does = Does::stand;
    EXPECT_TRUE(pump());
    EXPECT_TRUE(chain.chainBlocked.load());
    EXPECT_EQ(chain.endStage, &chain.middle);
}

TEST_F(Pump, TheMarkOfAStageThatStandsKeepsTheStreamsFormat) {
    write(100);
    pump();
    chain.last.does = Does::stand; // it marks its place in 16 bits
    pump();
    EXPECT_TRUE(ring(2).newest().empty());
    EXPECT_EQ(ring(2).newest().format.type, sampleType::int32);
}

TEST_F(Pump, AChangeOfFormatGoesOnAsAnEmptyBlockAndIsNoStandstill) {
    write(100);
    pump();
    chain.input.append(formatOf(sampleType::int16, 6, 96000), nullptr, 0, chain.writtenEnd(),
                       chain.writtenEnd());
    EXPECT_TRUE(pump());
    EXPECT_FALSE(chain.chainBlocked.load());
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(ring(i).newest().empty());
        EXPECT_EQ(ring(i).newest().format, formatOf(sampleType::int16, 6, 96000));
        EXPECT_EQ(ring(i).end(), 100);
    }
}

TEST_F(Pump, AHeldStageMarksItsPlaceInsteadOfReadingOn) {
    write(100);
    chain.last.isHeld = true;
    EXPECT_TRUE(pump());
    EXPECT_EQ(chain.last.asked, (std::vector<int>{0}));
    EXPECT_TRUE(chain.chainBlocked.load());
    EXPECT_EQ(chain.log, (Log{"last"}));
    EXPECT_EQ(ring(0).end(), 0);
}

TEST_F(Pump, AnEditEndsTheStepAtTheNextStage) {
    write(100);
    chain.middle.onProcess = [this] { chain.editRequested.set(); };
    EXPECT_TRUE(pump());
    EXPECT_EQ(chain.log, (Log{"last", "middle"})) << "the input's block stays behind it";
    EXPECT_EQ(ring(0).end(), 100);
    EXPECT_EQ(ring(1).end(), 0);
    EXPECT_TRUE(pump());
    EXPECT_EQ(chain.log, (Log{"last", "middle", "last", "middle"}));
    EXPECT_EQ(ring(1).end(), 100);
    EXPECT_EQ(ring(2).end(), 0);
    chain.middle.onProcess = {};
    chain.editRequested.reset();
    EXPECT_TRUE(pump());
    EXPECT_EQ(ring(2).end(), 100);
}

TEST_F(Pump, ABlockAtTheEndMeansThatTheChainIsNotStarvedForInput) {
    chain.starvedForInput.store(true);
    EXPECT_FALSE(pump());
    EXPECT_TRUE(chain.starvedForInput.load());
    write(100);
    pump();
    EXPECT_FALSE(chain.starvedForInput.load());
}

// -- On the playback thread --------------------------------------------------------------------

TEST_F(Playback, AnEmptyHostRingStarvesTheChainOnceAndItWaits) {
    clock.advance(1);
    EXPECT_TRUE(chain.inputStarved.isSet());
    EXPECT_TRUE(chain.starvedForInput.load());
    EXPECT_TRUE(chain.isIdle());
    const std::size_t calls = chain.log.size();
    clock.advance(900);
    EXPECT_EQ(chain.log.size(), calls) << "nobody woke it";
}

TEST_F(Playback, AWakeClearsTheStarvation) {
    clock.advance(1);
    chain.wake();
    EXPECT_FALSE(chain.inputStarved.isSet());
    EXPECT_TRUE(chain.playbackThread.wakeEvent.isSet());
    EXPECT_TRUE(chain.workAvailable.isSet());
    clock.advance(1);
    EXPECT_TRUE(chain.inputStarved.isSet());
}

TEST_F(Playback, AStandstillIsNotStarvation) {
    chain.last.isHeld = true;
    write(100);
    clock.advance(1);
    EXPECT_FALSE(chain.inputStarved.isSet());
    EXPECT_FALSE(chain.starvedForInput.load());
    EXPECT_TRUE(chain.chainBlocked.load());
    EXPECT_TRUE(chain.isIdle());
    const std::size_t calls = chain.log.size();
    clock.advance(900);
    EXPECT_EQ(chain.log.size(), calls);
}

TEST_F(Playback, AMarkerBetweenTracksDoesNotStopTheThread) {
    write(10'000);
    chain.input.append(formatOf(sampleType::int32, 2, 48000), nullptr, 0, chain.writtenEnd(),
                       chain.writtenEnd());
    write(10'000);
    clock.advance(1000);
    EXPECT_EQ(heard(), all());
}

TEST_F(Playback, EverythingWrittenIsHeardOnceAndInOrder) {
    for (int i = 0; i < 200; ++i) {
        write(1 + i * 7 % 1700);
        clock.advance(i * 3 % 17);
    }
    chain.drain(-1);
    clock.advance(100);
    EXPECT_EQ(heard(), all());
}

TEST_F(Playback, TheThreadRunsAtItsPriorityAndGivesItBack) {
    clock.advance(1);
    EXPECT_EQ(chain.playbackThread.priority(), priorityHighest);
    write(100'000);
    clock.advance(300);
    EXPECT_EQ(chain.playbackThread.priority(), priorityHighest);
}

// -- Trimming ----------------------------------------------------------------------------------

TEST_F(Playback, WhatWasPlayedGoesButTheTwoNewestBlocksOfEachRingStay) {
    for (int i = 0; i < 20; ++i)
        write(2000);
    clock.advance(5);
    EXPECT_EQ(chain.input.hostRing.count(), 20);
    chain.drain(-1);
    clock.advance(100);
    const RecursiveLock::Scope pumping{chain.pumpLock};
    chain.trim();
    EXPECT_EQ(chain.input.hostRing.count(), 2);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(ring(i).count(), 2) << "ring " << i;
    EXPECT_EQ(ring(0).removed(), 18);
    EXPECT_EQ(chain.input.hostRing.oldest().posStart, 36'000);
}

TEST_F(Playback, WhatWasNotPlayedStays) {
    for (int i = 0; i < 20; ++i)
        write(2000);
    clock.advance(300);
    const RecursiveLock::Scope pumping{chain.pumpLock};
    chain.trim();
    const std::int64_t played = chain.output.position();
    EXPECT_GT(played, 10'000);
    for (int i = 0; i < 3; ++i) {
        EXPECT_LE(ring(i).oldest().posStart, played) << "ring " << i;
        EXPECT_GT(ring(i).oldest().posEnd, played) << "ring " << i;
    }
    EXPECT_LE(chain.input.hostRing.oldest().posStart, played);
    EXPECT_GT(chain.input.hostRing.oldest().posEnd, played);
}

TEST_F(Playback, TrimmedBlocksGiveTheirMemoryBack) {
    for (int i = 0; i < 100; ++i)
        write(2000);
    chain.drain(-1);
    const RecursiveLock::Scope pumping{chain.pumpLock};
    chain.trim();
    EXPECT_LE(chain.input.arenaStore.liveBytes(), 2 * 2000 * 8);
}

// -- The clock that stages see -----------------------------------------------------------------

TEST_F(Pump, TheEngineTellsTimesOfTheHostRing) {
    EXPECT_EQ(chain.writtenEnd(), 0);
    EXPECT_EQ(chain.timeToPosition(55), 0);
    EXPECT_EQ(chain.positionToTime(55), 0);
    SampleFormat format = formatOf(3, 3, 3);
    chain.formatAtTime(0, &format);
    EXPECT_EQ(format, formatOf(3, 3, 3)) << "an empty ring leaves it as it was";

    write(480);
    write(441, 44100);
    EXPECT_EQ(chain.writtenEnd(), 200'000);
    EXPECT_EQ(chain.timeToPosition(50'000), 240);
    EXPECT_EQ(chain.timeToPosition(1'200'000), 921 + 4410);
    EXPECT_EQ(chain.positionToTime(240), 50'000);
    chain.formatAtTime(-5, &format);
    EXPECT_EQ(format.rate, 48000);
    chain.formatAtTime(150'000, &format);
    EXPECT_EQ(format.rate, 44100);
    chain.formatAtTime(99'000'000, &format);
    EXPECT_EQ(format.rate, 44100);
}

} // namespace
} // namespace velorine::test
