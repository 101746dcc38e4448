#include "chain/driver/FxOutput.h"

#include "chain/driver/OutputPacing.h"
#include "config/MemoryStore.h"
#include "config/RegistryNode.h"
#include "tests/driver/OutputRig.h"
#include "tests/support/ScriptedSound.h"

#include <gtest/gtest.h>

#include <numeric>
#include <random>

namespace velorine::test {
namespace {

using ScriptedRig = OutputRigOn<ScriptedSound>;

std::vector<std::int32_t> countingFrom(std::int32_t first, int frames) {
    std::vector<std::int32_t> expected(static_cast<std::size_t>(frames));
    std::iota(expected.begin(), expected.end(), first);
    return expected;
}

// -- Taking slices -----------------------------------------------------------------------------

TEST(FxOutput, ALongBlockIsServedInSlices) {
    OutputRig rig;
    rig.start();
    rig.count(10'000, 1);
    EXPECT_TRUE(rig.output.service(rig.pace));
    EXPECT_EQ(rig.output.writtenEnd(), 4608);
    EXPECT_TRUE(rig.output.service(rig.pace));
    EXPECT_EQ(rig.output.writtenEnd(), 9216);
    EXPECT_TRUE(rig.output.service(rig.pace));
    EXPECT_EQ(rig.output.writtenEnd(), 10'000);
    EXPECT_FALSE(rig.output.service(rig.pace));
}

TEST(FxOutput, TheTimeOfASliceIsInterpolated) {
    OutputRig rig;
    rig.start();
    rig.count(10'000, 1);
    rig.output.service(rig.pace);
    EXPECT_EQ(rig.output.timeAt(4608), 960'000);
    EXPECT_EQ(rig.output.timeAt(2304), 480'000);
    EXPECT_EQ(rig.output.timeAt(9000), 960'000); // no more than that was taken
}

TEST(FxOutput, NothingNewIsNothingToServe) {
    OutputRig rig;
    rig.start();
    EXPECT_FALSE(rig.output.service(rig.pace));
    rig.count(10, 1);
    EXPECT_TRUE(rig.output.service(rig.pace));
    EXPECT_FALSE(rig.output.service(rig.pace));
    EXPECT_FALSE(rig.output.service(rig.pace));
}

TEST(FxOutput, BlocksWithoutFramesArePassed) {
    OutputRig rig;
    rig.start();
    const SampleFormat format = formatOf(sampleType::int32, 2, 48000);
    commitTo(rig.ring, markerOf(format, 0));
    rig.count(5000, 1);
    commitTo(rig.ring, markerOf(format, rig.ring.newest().timeEnd));
    commitTo(rig.ring, markerOf(format, rig.ring.newest().timeEnd + 1));
    rig.count(5000, 5001);
    rig.serveAll();
    rig.playOut();
    EXPECT_EQ(loudFrames(rig.sound.heard<std::int32_t>()), countingFrom(1, 10'000));
}

TEST(FxOutput, AMarkerAtTheEndIsNoWork) {
    OutputRig rig;
    rig.start();
    rig.count(100, 1);
    commitTo(rig.ring, markerOf(formatOf(sampleType::int32, 2, 48000), rig.ring.newest().timeEnd));
    rig.serveAll();
    EXPECT_EQ(rig.output.writtenEnd(), 100);
}

// -- Output format -----------------------------------------------------------------------------

struct BitsRow {
    int bits;
    int hostType;
    int tag;
    int container;
    int valid;
};

class OutputFormat : public testing::TestWithParam<BitsRow> {};

TEST_P(OutputFormat, FollowsTheHostOrTheSetting) {
    const BitsRow& row = GetParam();
    OutputRig rig;
    rig.output.bits.store(row.bits);
    rig.start();
    // The chain ends in float; the host wrote another type.
    FxRing host;
    FxBlock written = markerOf(formatOf(row.hostType, 2, 44100), 0);
    written.timeEnd = 100'000'000;
    host.push(written);
    rig.engine.ring = &host;
    rig.add<float>(1000, formatOf(sampleType::float32, 2, 44100), 0.25f, 0.0f);
    rig.serveAll();

    ASSERT_EQ(rig.sound.formats.size(), 1u);
    const SoundSystem::Format& opened = rig.sound.formats[0];
    EXPECT_EQ(opened.formatTag, row.tag);
    EXPECT_EQ(opened.containerBits, row.container);
    EXPECT_EQ(opened.validBits, row.valid);
    EXPECT_EQ(opened.channels, 2);
    EXPECT_EQ(opened.rate, 44100);
    EXPECT_EQ(opened.bufferFrames, 90760);
}

INSTANTIATE_TEST_SUITE_P(
    Bits, OutputFormat,
    testing::Values(BitsRow{1, 0, 1, 8, 8}, BitsRow{1, 1, 1, 16, 16}, BitsRow{1, 2, 1, 24, 24},
                    BitsRow{1, 3, 1, 32, 28}, // in full scale, as a 32-bit container
                    BitsRow{1, 4, 1, 32, 32}, BitsRow{1, 6, 3, 32, 32}, BitsRow{3, 1, 1, 16, 16},
                    BitsRow{4, 1, 1, 8, 4}, BitsRow{8, 1, 1, 8, 8}, BitsRow{9, 1, 1, 16, 9},
                    BitsRow{14, 1, 1, 16, 14}, BitsRow{16, 6, 1, 16, 16}, BitsRow{17, 1, 1, 24, 17},
                    BitsRow{24, 1, 1, 24, 24}, BitsRow{25, 1, 1, 32, 25}, BitsRow{32, 0, 1, 32, 32},
                    BitsRow{64, 1, 1, 32, 32}));

TEST(FxOutput, TheFormatIsThatOfTheHostAtTheSlicesTime) {
    OutputRig rig;
    rig.start();
    FxRing host;
    FxBlock written = markerOf(formatOf(sampleType::int16, 2, 48000), 0);
    written.timeEnd = 1'000'000;
    host.push(written);
    FxBlock later = markerOf(formatOf(sampleType::int24, 2, 48000), 1'000'000);
    later.timeEnd = 2'000'000;
    host.push(later);
    rig.engine.ring = &host;
    rig.add<float>(4800, formatOf(sampleType::float32, 2, 48000), 0.25f, 0.0f); // the first 100 ms
    rig.serveAll();
    ASSERT_EQ(rig.sound.formats.size(), 1u);
    rig.add<float>(4800, formatOf(sampleType::float32, 2, 48000), 0.25f, 0.0f);
    rig.serveAll();
    ASSERT_EQ(rig.sound.formats.size(), 2u);
    EXPECT_EQ(rig.sound.formats[1].containerBits, 24);
}

TEST(FxOutput, SpeakersFollowTheChannels) {
    for (const auto& [channels, mask] : {std::pair{1, 4}, {2, 3}, {6, 0}}) {
        OutputRig rig;
        rig.start();
        rig.add<std::int16_t>(100, formatOf(sampleType::int16, channels, 48000), 1, 0);
        rig.serveAll();
        ASSERT_EQ(rig.sound.formats.size(), 1u);
        EXPECT_EQ(rig.sound.formats[0].channelMask, mask) << channels << " channels";
    }
}

TEST(FxOutput, ASliceInTheOutputsFormatIsHandedOverUntouched) {
    OutputRig rig;
    rig.start();
    rig.count(20'000, 1 << 30);
    rig.serveAll();
    rig.playOut();
    EXPECT_EQ(loudFrames(rig.sound.heard<std::int32_t>()), countingFrom(1 << 30, 20'000));
}

TEST(FxOutput, ADeviceOfHigherResolutionIsKept) {
    OutputRig rig;
    rig.start();
    rig.add<std::int32_t>(10'000, formatOf(sampleType::int32, 1, 48000), 1 << 20, 0);
    rig.serveAll();
    rig.add<std::int16_t>(10'000, formatOf(sampleType::int16, 1, 48000), 5, 0);
    const std::int64_t before = rig.clock.ticks();
    EXPECT_TRUE(rig.output.service(rig.pace));
    EXPECT_LT(rig.clock.ticks() - before, 1'000'000) << "nothing has to play out";
    rig.serveAll();
    rig.playOut();

    EXPECT_EQ(rig.sound.opens, 1);
    const auto heard = loudFrames(rig.sound.heard<std::int32_t>(), 1);
    ASSERT_EQ(heard.size(), 20'000u);
    EXPECT_EQ(heard.front(), 1 << 20);
    EXPECT_EQ(heard[10'000], 5 << 16); // sixteen bits in the device's thirty-two
    EXPECT_EQ(heard.back(), 5 << 16);
}

TEST(FxOutput, AHigherResolutionReopensTheDeviceAndLosesNothing) {
    OutputRig rig;
    rig.start();
    rig.add<std::int16_t>(20'000, formatOf(sampleType::int16, 1, 48000), 7, 0);
    rig.serveAll();
    rig.add<std::int32_t>(20'000, formatOf(sampleType::int32, 1, 48000), 1, 1);
    rig.serveAll();
    rig.playOut();

    EXPECT_EQ(rig.sound.opens, 2);
    const auto passages = rig.sound.passages();
    ASSERT_GE(passages.size(), 2u);
    std::vector<std::int16_t> first;
    std::vector<std::int32_t> second;
    for (const TestSound::Passage& passage : passages) {
        const auto* const samples = passage.frames.data();
        for (int i = 0; i < passage.count(); ++i) {
            if (passage.format.containerBits == 16) {
                std::int16_t x = 0;
                std::memcpy(&x, samples + 2 * i, 2);
                if (x != 0) first.push_back(x);
            } else {
                std::int32_t x = 0;
                std::memcpy(&x, samples + 4 * i, 4);
                if (x != 0) second.push_back(x);
            }
        }
    }
    EXPECT_EQ(first, std::vector<std::int16_t>(20'000, 7));
    EXPECT_EQ(second, countingFrom(1, 20'000));
}

TEST(FxOutput, ANewRateReopensTheDevice) {
    OutputRig rig;
    rig.start();
    rig.count(20'000, 1, 48000);
    rig.serveAll();
    rig.count(20'000, 20'001, 44100);
    rig.serveAll();
    rig.playOut();
    EXPECT_EQ(rig.sound.opens, 2);
    EXPECT_EQ(loudFrames(rig.sound.heard<std::int32_t>()), countingFrom(1, 40'000));
    EXPECT_EQ(rig.output.writtenEnd(), 40'000); // one axis across devices
    EXPECT_EQ(rig.output.position(), 40'000);
}

TEST(FxOutput, TracksOfOneFormatNeedNoNewOpen) {
    OutputRig rig;
    rig.start();
    rig.count(30'000, 1);
    rig.serveAll();
    commitTo(rig.ring, markerOf(formatOf(sampleType::int32, 2, 48000), rig.ring.newest().timeEnd));
    rig.count(30'000, 30'001);
    rig.serveAll();
    rig.playOut();
    EXPECT_EQ(rig.sound.opens, 1);
    EXPECT_EQ(loudFrames(rig.sound.heard<std::int32_t>()), countingFrom(1, 60'000));
}

TEST(FxOutput, TheNullTargetIsOpenedOnceAndNotForEachBlock) {
    OutputRig rig;
    rig.output.device.setDeviceName("None");
    rig.start();
    rig.count(9000, 1);
    rig.serveAll();
    ASSERT_TRUE(rig.output.device.running.isSet());
    EXPECT_TRUE(rig.output.device.isNullTarget());
    const std::int64_t before = rig.clock.ticks();
    rig.count(4608, 9001);
    rig.serveAll();
    EXPECT_TRUE(rig.output.device.running.isSet());
    EXPECT_LT(rig.clock.ticks() - before, 500'000);
}

TEST(FxOutput, NoiseShapingIsTakenForEachConversion) {
    // Plain dither leaves a constant within two steps; shaping raises the noise by 17 dB.
    const auto spread = [](bool shaped) {
        OutputRig rig;
        rig.output.bits.store(16);
        rig.output.noiseshaping.store(shaped);
        rig.start();
        rig.add<float>(20'000, formatOf(sampleType::float32, 1, 48000), 0.1f, 0.0f);
        rig.serveAll();
        rig.playOut();
        std::vector<std::int16_t> loud = rig.sound.heard<std::int16_t>();
        std::erase(loud, 0);
        const auto [least, most] = std::minmax_element(loud.begin(), loud.end());
        return *most - *least;
    };
    EXPECT_LE(spread(false), 2);
    EXPECT_GT(spread(true), 10);
}

// -- Change of format in an edit, at the end, and where the device fails -----------------------

TEST(FxOutput, AnEditInterruptsTheWaitForTheOldFormatAndNothingIsLost) {
    OutputRig rig;
    rig.start();
    rig.count(40'000, 1, 48000);
    rig.serveAll();
    rig.count(20'000, 40'001, 44100);
    rig.edit.set();
    const std::int64_t before = rig.clock.ticks();
    EXPECT_TRUE(rig.output.service(rig.pace));
    EXPECT_EQ(rig.clock.ticks(), before);
    EXPECT_EQ(rig.output.writtenEnd(), 40'000);
    rig.edit.reset();
    rig.serveAll();
    rig.playOut();
    EXPECT_EQ(loudFrames(rig.sound.heard<std::int32_t>()), countingFrom(1, 60'000));
}

TEST(FxOutput, TheThreadsEndInterruptsTheWaitForTheOldFormat) {
    OutputRig rig;
    rig.start();
    rig.count(40'000, 1, 48000);
    rig.serveAll();
    rig.count(20'000, 40'001, 44100);
    rig.stop.set();
    const std::int64_t before = rig.clock.ticks();
    EXPECT_TRUE(rig.output.service(rig.pace));
    EXPECT_EQ(rig.clock.ticks(), before);
    EXPECT_EQ(rig.sound.opens, 1);
}

TEST(FxOutput, InsideAnEditANewFormatWaitsForItsEnd) {
    OutputRig rig;
    rig.start();
    rig.count(40'000, 1, 48000);
    rig.serveAll();
    rig.count(20'000, 40'001, 44100);
    const std::int64_t before = rig.clock.ticks();
    EXPECT_FALSE(rig.output.service(rig.insideEdit));
    EXPECT_TRUE(rig.output.waitsForEdit());
    EXPECT_EQ(rig.clock.ticks(), before);
    rig.serveAll();
    EXPECT_FALSE(rig.output.waitsForEdit());
    rig.playOut();
    EXPECT_EQ(loudFrames(rig.sound.heard<std::int32_t>()), countingFrom(1, 60'000));
}

TEST(FxOutput, ThePriorityIsRestoredAfterAChangeOfFormat) {
    OutputRig rig;
    rig.start();
    kernel().setCurrentPriority(1);
    rig.count(20'000, 1, 48000);
    rig.serveAll();
    rig.count(20'000, 1, 44100);
    rig.serveAll();
    EXPECT_EQ(kernel().currentPriority(), 1);
    EXPECT_EQ(rig.clock.timerPeriods, 1); // the clock's own
}

TEST(FxOutput, AChangeOfFormatDoesNotWaitForADeviceThatNeverPlays) {
    OutputRig rig;
    rig.sound.playFails = true;
    rig.start();
    rig.count(20'000, 1, 48000);
    rig.serveAll();
    EXPECT_FALSE(rig.output.device.running.isSet());
    rig.count(20'000, 20'001, 44100);
    const std::int64_t before = rig.clock.ticks();
    const SetLater watchdog{rig.stop, 30'000};
    rig.serveAll();
    EXPECT_FALSE(rig.stop.isSet());
    EXPECT_LT(rig.clock.ticks() - before, 20'000'000);
    EXPECT_EQ(rig.sound.opens, 2);
}

// -- Pacing ------------------------------------------------------------------------------------

TEST(FxOutput, TheQueueFollowsTheTarget) {
    OutputRig rig;
    rig.start();
    const FxTime begin = rig.time.now();
    while (rig.time.now() < begin + 8 * ticksPerSecond) {
        rig.count(1152, 1);
        rig.serveAll();
        if (!rig.output.device.running.isSet()) continue;
        const std::int64_t queued = rig.output.writtenEnd() - rig.output.position();
        const std::int64_t target = rig.output.target.frames(rig.time.now(), 48000);
        const std::int64_t limit = 98560 - guardFrames(48000);
        ASSERT_LE(queued, std::min(target, limit) + 1152 + 48); // a block, and a ms of polling
        if (rig.time.now() > begin + 2 * ticksPerSecond) {
            ASSERT_GE(queued, std::min(target, limit) - 2 * 1152 - 51 * 48);
        }
        while (rig.ring.count() > 2)
            rig.ring.pop();
    }
    EXPECT_GT(rig.output.bufferedMs(), 1400); // the device's limit, 1496 ms
    EXPECT_LE(rig.output.bufferedMs(), 1496);
}

TEST(FxOutput, NoWriteIsLongerThanAChunk) {
    ScriptedRig rig;
    rig.sound.playResults.assign(100, SoundBuffer::Result::failed); // or silence is written, too
    rig.start();
    rig.count(20'000, 1, 44100);
    rig.serveAll();
    int longest = 0;
    int total = 0;
    for (const ScriptedSound::Lock& lock : rig.sound.locks) {
        if (lock.frames == 90760) continue; // the silence of an open
        longest = std::max(longest, lock.frames);
        total += lock.frames;
    }
    EXPECT_EQ(longest, 3072);
    EXPECT_EQ(total, 20'000);
}

TEST(FxOutput, AHaltedDeviceTakesNoMoreThanItsLimit) {
    OutputRig rig;
    rig.sound.playFails = true;
    rig.start();
    rig.count(200'000, 1, 44100);
    const SetLater ender{rig.edit, 2000};
    while (!rig.edit.isSet())
        rig.output.service(rig.pace);
    EXPECT_EQ(rig.clock.ticks(), 20'000'000); // it waited, and left at once
    EXPECT_LE(rig.output.writtenEnd(), 66184);
    EXPECT_GT(rig.output.writtenEnd(), 66184 - 3072);
}

TEST(FxOutput, NoCallWaitsLongerThanFiftyMs) {
    // At 200 Hz a slice lasts 23 s, and the buffer takes 400 frames of it at a time.
    OutputRig rig;
    rig.start();
    rig.count(5000, 1, 200);
    for (int i = 0; i < 400; ++i) {
        const std::int64_t before = rig.clock.ticks();
        ASSERT_TRUE(rig.output.service(rig.pace));
        ASSERT_LE(rig.clock.ticks() - before, 500'000);
    }
    EXPECT_GT(rig.output.writtenEnd(), 2000);
    EXPECT_LE(rig.output.writtenEnd(), 5000);
}

TEST(FxOutput, ADeviceThatNeverPlaysIsAskedAgainEveryTenMs) {
    OutputRig rig;
    rig.sound.playFails = true;
    rig.start();
    rig.count(200'000, 1, 44100);
    for (int i = 0; i < 20; ++i)
        rig.output.service(rig.pace);
    const std::int64_t before = rig.clock.ticks();
    EXPECT_TRUE(rig.output.service(rig.pace));
    EXPECT_EQ(rig.clock.ticks() - before, 100'000);
    rig.sound.playFails = false;
    rig.output.outputTail(rig.pace);
    rig.serveAll();
    rig.playOut();
    EXPECT_EQ(loudFrames(rig.sound.heard<std::int32_t>()), countingFrom(1, 200'000));
}

TEST(FxOutput, InsideAnEditAFullDeviceThatStandsIsNotWaitedFor) {
    OutputRig rig;
    rig.sound.playFails = true;
    rig.start();
    rig.count(200'000, 1, 44100);
    const SetLater watchdog{rig.stop, 60'000};
    for (int i = 0; i < 100 && rig.output.service(rig.insideEdit); ++i) {
    }
    EXPECT_FALSE(rig.stop.isSet()) << "an edit would hold its locks for ever";
    EXPECT_LT(rig.clock.ticks(), 5'000'000);
}

TEST(FxOutput, InsideAnEditOnlyTheBuffersEndCounts) {
    OutputRig rig;
    rig.start();
    rig.count(40'000, 1);
    const std::int64_t before = rig.clock.ticks();
    while (rig.output.service(rig.insideEdit)) {
    }
    EXPECT_EQ(rig.clock.ticks(), before); // 833 ms queued where the target is 200
    EXPECT_EQ(rig.output.writtenEnd(), 40'000);
}

TEST(FxOutput, AnInterruptedSliceGoesOnWhereItWas) {
    OutputRig rig;
    rig.start();
    rig.count(20'000, 1);
    for (int i = 0; i < 3; ++i)
        rig.output.service(rig.pace);
    rig.edit.set();
    EXPECT_TRUE(rig.output.service(rig.pace)); // taken, but not handed over
    EXPECT_TRUE(rig.output.service(rig.pace));
    rig.edit.reset();
    rig.serveAll();
    rig.playOut();
    EXPECT_EQ(loudFrames(rig.sound.heard<std::int32_t>()), countingFrom(1, 20'000));
}

// -- Lost buffers ------------------------------------------------------------------------------

TEST(FxOutput, ALostBufferIsRestoredAndTheWriteRetriedOnce) {
    OutputRig rig;
    rig.start();
    rig.count(9000, 1);
    rig.serveAll();
    rig.sound.lostLocks = 1;
    rig.count(3000, 9001);
    rig.serveAll();
    rig.playOut();
    EXPECT_EQ(loudFrames(rig.sound.heard<std::int32_t>()), countingFrom(1, 12'000));
}

TEST(FxOutput, ABufferThatStaysLostCountsAsWritten) {
    ScriptedRig rig;
    rig.start();
    rig.count(100, 1);
    rig.serveAll();
    rig.sound.calls.clear();
    rig.sound.lockResults = {SoundBuffer::Result::lost, SoundBuffer::Result::failed};
    rig.count(100, 101);
    rig.serveAll();
    EXPECT_EQ(rig.output.writtenEnd(), 200);
    EXPECT_EQ(rig.sound.countOf("restore"), 1);
    rig.count(100, 201);
    rig.serveAll();
    EXPECT_EQ(rig.sound.locks.back().start, 2400 + 200); // where it belongs
}

// -- Taking back -------------------------------------------------------------------------------

TEST(FxOutput, WhatIsTakenBackIsServedAgain) {
    OutputRig rig;
    rig.start();
    rig.count(30'000, 1);
    rig.serveAtOnce();
    EXPECT_EQ(rig.output.rewindTo(12'345), 12'345);
    EXPECT_EQ(rig.output.writtenEnd(), 12'345);
    rig.serveAll();
    rig.playOut();
    EXPECT_EQ(loudFrames(rig.sound.heard<std::int32_t>()), countingFrom(1, 30'000));
}

TEST(FxOutput, WhatWasPlayedIsNotTakenBack) {
    OutputRig rig;
    rig.start();
    rig.count(30'000, 1);
    rig.serveAtOnce();
    rig.clock.advance(300);
    const std::int64_t position = rig.output.position();
    EXPECT_GT(position, 10'000);
    EXPECT_EQ(rig.output.rewindTo(5), position);
}

TEST(FxOutput, FramesThatAreFirmAreNotTakenBack) {
    OutputRig rig;
    rig.sound.firmFrames = 960;
    rig.start();
    rig.count(30'000, 1);
    rig.serveAtOnce();
    rig.clock.advance(300);
    const std::int64_t position = rig.output.position();
    EXPECT_EQ(rig.output.rewindTo(5), position + 960);
    rig.serveAll();
    rig.playOut();
    EXPECT_EQ(loudFrames(rig.sound.heard<std::int32_t>()), countingFrom(1, 30'000));
}

TEST(FxOutput, NothingBehindTheWrittenEndIsTakenBack) {
    OutputRig rig;
    rig.start();
    rig.count(1000, 1);
    rig.serveAll();
    EXPECT_EQ(rig.output.rewindTo(5000), 1000);
}

TEST(FxOutput, AnInterruptedSliceIsDroppedByTheWayBackAndServedAgain) {
    OutputRig rig;
    rig.start();
    rig.count(20'000, 1);
    for (int i = 0; i < 3; ++i)
        rig.output.service(rig.pace);
    rig.edit.set();
    rig.output.service(rig.pace);
    rig.edit.reset();
    const std::int64_t written = rig.output.writtenEnd();
    EXPECT_EQ(rig.output.rewindTo(written), written);
    rig.serveAll();
    rig.playOut();
    EXPECT_EQ(loudFrames(rig.sound.heard<std::int32_t>()), countingFrom(1, 20'000));
}

TEST(FxOutput, RandomTakingBackLosesAndRepeatsNothing) {
    std::mt19937 random{6};
    for (int round = 0; round < 20; ++round) {
        OutputRig rig;
        rig.start();
        rig.count(150'000, 1);
        for (int step = 0; step < 60; ++step) {
            for (int i = static_cast<int>(random() % 4); i >= 0; --i)
                rig.output.service(rig.pace);
            if (random() % 2 != 0) rig.clock.advance(static_cast<int>(random() % 60));
            // The device's position lags the cursor by less than a poll; stay clear of it.
            const std::int64_t from = rig.output.position() + 960;
            const std::int64_t written = rig.output.writtenEnd();
            if (from < written && random() % 3 == 0)
                rig.output.rewindTo(from + static_cast<std::int64_t>(random()) % (written - from));
            rig.output.checkInvariants();
        }
        rig.serveAll();
        rig.playOut();
        const auto heard = loudFrames(rig.sound.heard<std::int32_t>());
        ASSERT_EQ(heard, countingFrom(1, 150'000)) << "round " << round;
    }
}

// -- Positions ---------------------------------------------------------------------------------

TEST(FxOutput, TheTimePlayedNeverGoesBack) {
    OutputRig rig;
    rig.start();
    EXPECT_EQ(rig.output.played(), 0);
    rig.count(30'000, 1);
    rig.serveAll();
    FxTime before = 0;
    for (int i = 0; i < 100; ++i) {
        rig.clock.advance(7);
        const FxTime now = rig.output.played();
        ASSERT_GE(now, before);
        before = now;
        if (i % 10 == 3) {
            rig.output.rewindTo(rig.output.position() + 2000);
            rig.serveAll();
        }
    }
    EXPECT_GT(before, 5'000'000);
}

TEST(FxOutput, TheTimePlayedIsThatOfTheFrameUnderTheCursor) {
    OutputRig rig;
    rig.start();
    rig.count(30'000, 1);
    rig.serveAll();
    rig.clock.advance(200);
    const std::int64_t position = rig.output.position();
    EXPECT_EQ(rig.output.played(), (position * ticksPerSecond + 24'000) / 48'000);
}

TEST(FxOutput, TrimKeepsTheTwoNewestBlocks) {
    OutputRig rig;
    rig.start();
    for (int i = 0; i < 6; ++i) {
        rig.count(1000, 1);
        rig.serveAll();
    }
    const FxTime blockTime = rig.output.timeAt(1000);
    rig.output.trim(3500);
    EXPECT_EQ(rig.output.timeAt(0), 3 * blockTime); // the oldest that is left
    rig.output.trim(1'000'000);
    EXPECT_EQ(rig.output.timeAt(0), 4 * blockTime);
}

TEST(FxOutput, BeforeTheFirstOpenNothingIsQueued) {
    OutputRig rig;
    rig.start();
    EXPECT_EQ(rig.output.bufferedMs(), 0);
    EXPECT_EQ(rig.output.position(), 0);
    EXPECT_EQ(rig.output.writtenEnd(), 0);
    EXPECT_EQ(rig.output.rewindTo(0), 0);
    EXPECT_EQ(rig.output.timeAt(55), 0);
    rig.output.outputTail(rig.pace);
    rig.output.playWhatIsQueued();
    rig.output.trim(0);
    EXPECT_EQ(rig.sound.opens, 0);
}

TEST(FxOutput, LittleThatIsQueuedIsPlayedWhenAsked) {
    OutputRig rig;
    rig.start();
    rig.count(500, 1); // far below what a start needs
    rig.serveAll();
    rig.clock.advance(500);
    EXPECT_FALSE(rig.output.device.running.isSet());
    rig.output.playWhatIsQueued();
    EXPECT_TRUE(rig.output.device.running.isSet());
    rig.playOut();
    EXPECT_EQ(loudFrames(rig.sound.heard<std::int32_t>()), countingFrom(1, 500));
}

// -- Settings and the file ---------------------------------------------------------------------

TEST(FxOutput, SettingsAreExchanged) {
    MemoryStore store;
    {
        OutputRig rig;
        rig.output.bits.store(24);
        rig.output.noiseshaping.store(true);
        rig.output.recorder.recordmode.store(2);
        rig.output.device.setDeviceName("Somebody's card");
        RegistryNode node{store, RegistryNode::write};
        rig.output.exchangeSettings(node);
    }
    OutputRig rig;
    RegistryNode node{store, RegistryNode::read};
    rig.output.exchangeSettings(node);
    EXPECT_EQ(rig.output.bits.load(), 24);
    EXPECT_TRUE(rig.output.noiseshaping.load());
    EXPECT_EQ(rig.output.recorder.recordmode.load(), 2);
    EXPECT_TRUE(rig.output.recordSwitch);
    EXPECT_EQ(rig.output.device.deviceName(), "Somebody's card");
}

TEST(FxOutput, WithoutSettingsItFollowsTheHostOnTheDefaultDevice) {
    MemoryStore store;
    OutputRig rig;
    RegistryNode node{store, RegistryNode::read};
    rig.output.exchangeSettings(node);
    rig.start();
    EXPECT_EQ(rig.output.bits.load(), 1);
    EXPECT_FALSE(rig.output.noiseshaping.load());
    EXPECT_FALSE(rig.output.recordSwitch);
    EXPECT_EQ(rig.output.outputMode, 0);
    EXPECT_EQ(rig.output.device.deviceName(), "");
}

struct FileRig : OutputRig {
    FileRig() {
        output.recordSwitch = true;
        output.recorder.recordmode.store(1);
        output.recorder.setPath("file.wav", true);
        start();
    }
    std::vector<std::int32_t> recorded() {
        output.recorder.close();
        const std::vector<std::byte>& file = files.files["file.wav"];
        std::vector<std::int32_t> samples((file.size() - 44) / 4);
        std::memcpy(samples.data(), file.data() + 44, samples.size() * 4);
        return samples;
    }
};

TEST(FxOutput, AFileTakesAllAtOnce) {
    FileRig rig;
    EXPECT_EQ(rig.output.outputMode, 1);
    rig.count(300'000, 1); // more than any device holds
    rig.serveAll();
    EXPECT_EQ(rig.clock.ticks(), 0);
    EXPECT_EQ(rig.output.bufferedMs(), 0);
    EXPECT_EQ(rig.output.position(), 300'000);
    EXPECT_EQ(rig.output.writtenEnd(), 300'000);
    EXPECT_EQ(rig.sound.opens, 0);
    EXPECT_EQ(loudFrames(rig.recorded()), countingFrom(1, 300'000));
}

TEST(FxOutput, WhatIsInTheFileIsNeverTakenBack) {
    FileRig rig;
    rig.count(10'000, 1);
    rig.serveAll();
    EXPECT_EQ(rig.output.rewindTo(10), 10'000);
    EXPECT_EQ(loudFrames(rig.recorded()), countingFrom(1, 10'000));
}

TEST(FxOutput, ARecordingBesideTheDeviceGoesBackWithIt) {
    OutputRig rig;
    rig.output.recordSwitch = true;
    rig.output.recorder.setPath("file.wav", true);
    rig.start();
    EXPECT_EQ(rig.output.outputMode, 0);
    rig.count(9000, 1);
    rig.serveAll();
    rig.output.rewindTo(8000);
    rig.serveAll();
    rig.playOut();
    EXPECT_EQ(loudFrames(rig.sound.heard<std::int32_t>()), countingFrom(1, 9000));
    rig.output.recorder.close();
    EXPECT_EQ(rig.files.files["file.wav"].size(), 44u + 9000u * 8u);
}

TEST(FxOutput, RecordingNeedsBothSwitchAndMode) {
    OutputRig rig;
    rig.output.recorder.recordmode.store(1);
    rig.start();
    EXPECT_EQ(rig.output.outputMode, 0);
    EXPECT_EQ(rig.output.recorder.active.load(), 0);
}

} // namespace
} // namespace velorine::test
