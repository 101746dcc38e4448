#include "chain/HostInputStage.h"

#include "tests/support/Blocks.h"
#include "tests/support/FakeFxClock.h"

#include <gtest/gtest.h>

#include <cstddef>

namespace velorine::test {
namespace {

constexpr int int16 = sampleType::int16;

class HostInputStageTest : public testing::Test {
protected:
    HostInputStageTest() {
        input.notifier = &clock;
        input.clock = &clock;
    }

    /// Mono frames `first`, `first + 1`, ..., as the host writes them.
    void write(int frames, int first, FxTime timeStart, FxTime timeEnd) {
        const auto samples = counting<std::int16_t>(frames, first);
        input.append(formatOf(int16, 1, 48000), samples.data(), 2 * frames, timeStart, timeEnd);
    }

    bool process(int maxFrames = 1152) {
        out = {};
        return input.process(input.arenaStore, out, unused, maxFrames);
    }

    /// All that the stage delivers.
    std::vector<std::int16_t> drainAll() {
        std::vector<std::int16_t> all;
        while (process() && !input.standing) {
            const auto samples = samplesOf<std::int16_t>(out);
            all.insert(all.end(), samples.begin(), samples.end());
        }
        return all;
    }

    FakeFxClock clock;
    HostInputStage input;
    FxRing unused;
    FxBlock out;
};

using HostInput = HostInputStageTest;

TEST_F(HostInput, PresentsCdStereo) {
    EXPECT_EQ(input.wave.tag, 1);
    EXPECT_EQ(input.wave.channels, 2);
    EXPECT_EQ(input.wave.rate, 44100u);
    EXPECT_EQ(input.wave.bytesPerSecond, 176400u);
    EXPECT_EQ(input.wave.blockAlign, 4);
    EXPECT_EQ(input.wave.bits, 16);
    EXPECT_EQ(input.wave.extraBytes, 0);
    EXPECT_EQ(sizeof input.wave, 18u);
}

// -- What the host appends ---------------------------------------------------------------------

TEST_F(HostInput, AppendCopiesTheFrames) {
    auto samples = counting<std::int16_t>(10, 1);
    input.append(formatOf(int16, 2, 44100), samples.data(), 20, 100, 200);
    samples.assign(10, 0);

    ASSERT_EQ(input.hostRing.count(), 1);
    const FxBlock& block = input.hostRing.at(0);
    EXPECT_EQ(samplesOf<std::int16_t>(block), counting<std::int16_t>(10, 1));
    EXPECT_EQ(block.format, formatOf(int16, 2, 44100));
    EXPECT_EQ(block.first, 0);
    EXPECT_EQ(block.last, 5);
    EXPECT_EQ(block.timeStart, 100);
    EXPECT_EQ(block.timeEnd, 200);
    EXPECT_EQ(block.srcStart, 0);
    EXPECT_EQ(block.srcEnd, 0);
    EXPECT_EQ(block.posEnd, 5);
}

TEST_F(HostInput, APartOfAFrameIsIgnored) {
    const auto samples = counting<std::int16_t>(10, 1);
    input.append(formatOf(int16, 2, 44100), samples.data(), 19, 0, 1);
    EXPECT_EQ(input.hostRing.end(), 4);
    input.append(formatOf(int16, 2, 44100), samples.data(), 3, 1, 2);
    EXPECT_EQ(input.hostRing.end(), 4);
}

TEST_F(HostInput, ANegativeByteCountIsNone) {
    const auto samples = counting<std::int16_t>(10, 1);
    input.append(formatOf(int16, 2, 44100), samples.data(), -8, 0, 50);
    ASSERT_EQ(input.hostRing.count(), 1);
    EXPECT_TRUE(input.hostRing.at(0).empty());
    EXPECT_EQ(input.hostRing.at(0).timeEnd, 50);
}

TEST_F(HostInput, AFormatWithoutChannelsHasNoFrames) {
    const auto samples = counting<std::int16_t>(10, 1);
    input.append(formatOf(int16, 0, 44100), samples.data(), 20, 0, 50);
    EXPECT_TRUE(input.hostRing.at(0).empty());
}

TEST_F(HostInput, NullDataAppendsAMarkerWithTheFormat) {
    input.append(formatOf(sampleType::int24, 6, 96000), nullptr, 1000, 30, 30);
    ASSERT_EQ(input.hostRing.count(), 1);
    EXPECT_TRUE(input.hostRing.at(0).empty());
    EXPECT_EQ(input.hostRing.at(0).format, formatOf(sampleType::int24, 6, 96000));
}

TEST_F(HostInput, AThirdMarkerOfTheSameSpansCollapses) {
    write(10, 1, 0, 100);
    for (int i = 0; i < 5; ++i)
        input.append(formatOf(int16, 1, 48000), nullptr, 0, 100, 100);
    EXPECT_EQ(input.hostRing.count(), 3);
    EXPECT_EQ(input.hostRing.end(), 10);
    input.append(formatOf(int16, 1, 48000), nullptr, 0, 100, 101);
    EXPECT_EQ(input.hostRing.count(), 4);
}

TEST_F(HostInput, SkippedSilenceIsABlockOfTimeAlone) {
    write(10, 1, 0, 100);
    const auto samples = counting<std::int16_t>(10, 1);
    input.append(formatOf(int16, 1, 48000), samples.data(), 0, 100, 5000);
    EXPECT_EQ(input.hostRing.count(), 2);
    EXPECT_EQ(input.hostRing.end(), 10);
    EXPECT_EQ(input.hostRing.newest().timeEnd, 5000);
}

TEST_F(HostInput, AppendWakesTheChainAndMeetsTheWish) {
    EXPECT_FALSE(process());
    EXPECT_TRUE(input.wantsData.load());
    write(10, 1, 0, 100);
    EXPECT_FALSE(input.wantsData.load());
    EXPECT_EQ(clock.wakes, 1);
}

TEST_F(HostInput, AppendWakesOutsideOfTheRingsLock) {
    struct Looker final : FxClock {
        explicit Looker(HostInputStage& stage) : input(stage) {}
        FxTime writtenEnd() override { return 0; }
        void wake() override {
            // A writer's own lock would admit this thread again without taking anything.
            free = input.hostRingLock.lockWrite();
            if (free) input.hostRingLock.unlockWrite();
        }
        void requestService() override {}
        std::int64_t timeToPosition(FxTime) override { return 0; }
        FxTime positionToTime(std::int64_t) override { return 0; }
        void formatAtTime(FxTime, SampleFormat*) override {}
        void exchangeSettings(RegistryNode&) override {}
        void exchangeBeepSetting(RegistryNode&) override {}
        HostInputStage& input;
        bool free = false;
    };
    Looker looker{input};
    input.notifier = &looker;
    write(10, 1, 0, 100);
    EXPECT_TRUE(looker.free);
}

// -- What the chain takes ----------------------------------------------------------------------

TEST_F(HostInput, WholeBlocksGoOnByReference) {
    write(2000, 1, 0, 100); // more than is asked for
    ASSERT_TRUE(process());
    EXPECT_EQ(out.frames(), 2000);
    EXPECT_EQ(out.buffer.get(), input.hostRing.at(0).buffer.get());
    EXPECT_EQ(out.srcStart, 0);
    EXPECT_EQ(out.srcEnd, std::int64_t{2000} << 16);
    EXPECT_FALSE(input.standing);
    EXPECT_FALSE(process());
}

TEST_F(HostInput, StarvedItStaysWhereItIs) {
    write(10, 1, 0, 100);
    ASSERT_TRUE(process());
    const std::int64_t before = input.nextInput;
    EXPECT_FALSE(process());
    EXPECT_FALSE(process());
    EXPECT_EQ(input.nextInput, before);
    write(10, 11, 100, 200);
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<std::int16_t>(out), counting<std::int16_t>(10, 11));
}

TEST_F(HostInput, ReadsOnWhereItWasSentBackTo) {
    write(10, 1, 0, 100);
    write(10, 11, 100, 200);
    drainAll();
    input.seek(0, FxPos::fromFrame(7));
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<std::int16_t>(out), counting<std::int16_t>(3, 8));
    EXPECT_EQ(out.timeStart, 70);
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<std::int16_t>(out), counting<std::int16_t>(10, 11));
}

TEST_F(HostInput, AChangeOfFormatTravelsAsAnEmptyBlockWithoutLosingFrames) {
    write(10, 1, 0, 100);
    input.append(formatOf(int16, 2, 44100), nullptr, 0, 100, 100);
    const auto samples = counting<std::int16_t>(20, 11);
    input.append(formatOf(int16, 2, 44100), samples.data(), 40, 100, 200);

    ASSERT_TRUE(process());
    EXPECT_EQ(out.frames(), 10);
    ASSERT_TRUE(process());
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(out.format, formatOf(int16, 2, 44100));
    EXPECT_FALSE(input.standing); // a passed marker is progress
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<std::int16_t>(out), counting<std::int16_t>(20, 11));
    EXPECT_FALSE(process());
}

TEST_F(HostInput, FramesThatAreGoneFromTheRingAreNotWaitedFor) {
    for (int i = 0; i < 5; ++i)
        write(10, 10 * i, 100 * i, 100 * i + 100);
    input.inputStartFor(0, FxPos::fromFrame(25));
    input.seek(0, FxPos::fromFrame(3));
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<std::int16_t>(out), counting<std::int16_t>(10, 20));
}

TEST_F(HostInput, AHoleIsFilledWithSilence) {
    write(10, 1, 0, 100);
    FxBlock late = countingBlock(input.arenaStore, 10, 50, 10'000, 11'000);
    late.posStart = 1010;
    late.posEnd = 1020;
    input.hostRing.push(late);
    ASSERT_TRUE(process());
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<std::int16_t>(out), std::vector<std::int16_t>(576));
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<std::int16_t>(out), std::vector<std::int16_t>(424));
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<std::int16_t>(out), counting<std::int16_t>(10, 50));
}

TEST_F(HostInput, WithNothingWantedItMarksItsPlace) {
    write(10, 1, 0, 100);
    input.seek(0, FxPos::fromFrame(4));
    ASSERT_TRUE(process(0));
    EXPECT_TRUE(out.empty());
    EXPECT_TRUE(input.standing);
    EXPECT_EQ(out.format, formatOf(int16, 2, 48000));
    EXPECT_EQ(out.timeStart, 40);
    EXPECT_EQ(out.timeEnd, 40);
    EXPECT_EQ(out.srcStart, std::int64_t{4} << 16);
    EXPECT_FALSE(input.wantsData.load());
}

TEST_F(HostInput, InputThatWasPlayedGoesButTheTwoNewestBlocksStay) {
    for (int i = 0; i < 6; ++i)
        write(10, 10 * i, 100 * i, 100 * i + 100);
    EXPECT_EQ(input.inputStartFor(-5, FxPos::fromDouble(29.9)), 29);
    EXPECT_EQ(input.hostRing.oldest().posStart, 20);
    input.inputStartFor(0, FxPos::fromFrame(60));
    EXPECT_EQ(input.hostRing.count(), 2);
    EXPECT_EQ(input.hostRing.oldest().posStart, 40);
}

// -- Dropping ----------------------------------------------------------------------------------

TEST_F(HostInput, WhatIsDroppedLeavesTheEndOfTheAxis) {
    write(10, 1, 0, 100);
    write(10, 11, 100, 200);
    const FxBlock marker = input.dropAll(false);
    EXPECT_EQ(marker.posEnd, 20);
    EXPECT_EQ(marker.timeEnd, 200);
    EXPECT_EQ(input.hostRing.count(), 1);
    EXPECT_TRUE(input.hostRing.at(0).empty());
    EXPECT_FALSE(process());

    write(10, 21, 200, 300);
    EXPECT_EQ(drainAll(), counting<std::int16_t>(10, 21));
    EXPECT_EQ(input.nextInput, 30);
}

TEST_F(HostInput, TheNewestBlockMayBeKept) {
    write(10, 1, 0, 100);
    write(10, 11, 100, 200);
    EXPECT_EQ(input.dropAll(true).posEnd, 20);
    ASSERT_EQ(input.hostRing.count(), 1);
    EXPECT_EQ(input.hostRing.at(0).frames(), 10);
    EXPECT_FALSE(process()); // the stage stands behind it
    write(10, 21, 200, 300);
    EXPECT_EQ(drainAll(), counting<std::int16_t>(10, 21));
}

TEST_F(HostInput, NothingWrittenIsNothingToDrop) {
    EXPECT_EQ(input.dropAll(false).posEnd, 0);
    EXPECT_TRUE(input.hostRing.empty());
}

// -- Flags that playing never sets -------------------------------------------------------------

TEST_F(HostInput, WithoutALimitReadingGoesToTheEnd) {
    write(10, 1, 0, 100);
    input.setLimit(-1);
    EXPECT_EQ(drainAll(), counting<std::int16_t>(10, 1));
    EXPECT_FALSE(input.standing);
    EXPECT_EQ(clock.serviceRequests, 0);
}

TEST_F(HostInput, ALimitBehindTheEndChangesNothing) {
    write(10, 1, 0, 100);
    input.setLimit(11);
    EXPECT_EQ(drainAll(), counting<std::int16_t>(10, 1));
    EXPECT_EQ(clock.serviceRequests, 0);
}

TEST_F(HostInput, AtALimitTheStageStands) {
    write(10, 1, 0, 100);
    write(10, 11, 100, 200);
    input.setLimit(14);
    ASSERT_TRUE(process());
    EXPECT_EQ(out.frames(), 10);
    EXPECT_EQ(clock.serviceRequests, 0);
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<std::int16_t>(out), counting<std::int16_t>(4, 11));
    EXPECT_EQ(out.timeEnd, 140);
    EXPECT_EQ(out.srcEnd, std::int64_t{14} << 16);
    EXPECT_EQ(clock.serviceRequests, 1);
    EXPECT_FALSE(input.standing);
    ASSERT_TRUE(process());
    EXPECT_TRUE(out.empty());
    EXPECT_TRUE(input.standing);
    EXPECT_EQ(out.format, formatOf(int16, 2, 48000));
    EXPECT_FALSE(input.wantsData.load());

    input.standing = false;
    input.setLimit(-1);
    EXPECT_EQ(drainAll(), counting<std::int16_t>(6, 15));
}

TEST_F(HostInput, ALimitInAHoleEndsTheSilenceThere) {
    write(10, 1, 0, 100);
    FxBlock late = countingBlock(input.arenaStore, 10, 50, 1000, 1100);
    late.posStart = 100;
    late.posEnd = 110;
    input.hostRing.push(late);
    input.setLimit(40);
    ASSERT_TRUE(process());
    ASSERT_TRUE(process());
    EXPECT_EQ(out.frames(), 30);
    input.setLimit(-1);
    ASSERT_TRUE(process());
    EXPECT_EQ(out.frames(), 60);
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<std::int16_t>(out), counting<std::int16_t>(10, 50));
}

TEST_F(HostInput, FilledSilenceIsAnEmptyBlockInPlaceOfNothing) {
    write(10, 1, 0, 100);
    input.fillSilence.store(true);
    ASSERT_TRUE(process());
    EXPECT_EQ(samplesOf<std::int16_t>(out), counting<std::int16_t>(10, 1));
    EXPECT_EQ(clock.serviceRequests, 1);
    ASSERT_TRUE(process());
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(out.format, formatOf(int16, 2, 48000));
    EXPECT_EQ(clock.serviceRequests, 2);
}

TEST_F(HostInput, MutedBlocksLoseTheirChannelsAndNothingElse) {
    write(10, 1, 0, 100);
    input.muted.store(true);
    ASSERT_TRUE(process());
    EXPECT_EQ(out.format.channels, 0);
    EXPECT_EQ(out.frames(), 10);
    EXPECT_EQ(input.hostRing.at(0).format.channels, 1);
    input.seek(0, FxPos::fromFrame(0));
    ASSERT_TRUE(input.processBody(input.arenaStore, out, unused, 1152));
    EXPECT_EQ(out.format.channels, 1);
}

TEST_F(HostInput, PullingWithoutASourceChangesNothing) {
    input.pull.store(true);
    EXPECT_FALSE(process());
    EXPECT_TRUE(input.wantsData.load());
    write(10, 1, 0, 100);
    EXPECT_EQ(drainAll(), counting<std::int16_t>(10, 1));
    EXPECT_EQ(clock.serviceRequests, 0);
}

} // namespace
} // namespace velorine::test
