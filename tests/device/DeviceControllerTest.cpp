#include "output/DeviceController.h"

#include "tests/support/ScriptedSound.h"
#include "tests/support/TestClock.h"
#include "tests/support/TestSound.h"
#include "tests/support/Worker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>

namespace velorine::test {
namespace {

using Result = SoundBuffer::Result;
using WriteResult = DeviceController::WriteResult;

constexpr SampleFormat stereo48{sampleType::int16, 2, 48000, fullWidth};
constexpr SampleFormat stereo44{sampleType::int16, 2, 44100, fullWidth};

/// A controller over a sound system whose answers a test sets.
class Controller : public testing::Test {
protected:
    ~Controller() override { controller.stopThreads(); }

    void open(const SampleFormat& format = stereo48) {
        controller.configure(format, 3, -1);
        controller.open(false);
    }

    /// Stereo 16-bit frames of the value `x`.
    WriteResult write(int frames, std::int16_t x = 1) {
        const std::vector<std::int16_t> samples(static_cast<std::size_t>(frames) * 2, x);
        return controller.write(samples.data(), frames);
    }

    /// Sample in the buffer's left channel.
    int sampleAt(int frame) const {
        std::int16_t x = 0;
        std::memcpy(&x, sound.memory.data() + 4 * frame, 2);
        return x;
    }

    TestClock clock;
    SystemClock time;
    ScriptedSound sound;
    DeviceController controller{time, &sound};
};

// -- Configuring and opening -------------------------------------------------------------------

TEST_F(Controller, NothingRunsBeforeTheFirstOpen) {
    const int objects = clock.liveObjects();
    EXPECT_FALSE(controller.isOpen());
    EXPECT_TRUE(controller.halted.isSet());
    EXPECT_FALSE(controller.running.isSet());
    EXPECT_EQ(controller.rate(), 48000);
    controller.setVolume(0.5);
    controller.setPan(0.5);
    controller.startIfReady();
    controller.stop();
    EXPECT_EQ(controller.position(), 0);
    EXPECT_EQ(controller.rewindTo(0), 0);
    EXPECT_EQ(write(10), WriteResult::refused);
    EXPECT_TRUE(sound.calls.empty());
    EXPECT_EQ(clock.liveObjects(), objects);
}

TEST_F(Controller, TheBufferHoldsTwoSecondsAndMore) {
    open(stereo48);
    EXPECT_EQ(controller.bufferFrames(), 98560);
    EXPECT_EQ(controller.rate(), 48000);
    open(stereo44);
    EXPECT_EQ(controller.bufferFrames(), 90760);
    EXPECT_EQ(sound.formats.back().bufferFrames, 90760);
}

TEST_F(Controller, AnOpenSilencesTheBufferAndStartsFiftyMsIn) {
    open();
    EXPECT_TRUE(std::all_of(sound.memory.begin(), sound.memory.end(),
                            [](std::byte x) { return x == std::byte{0}; }));
    EXPECT_EQ(sound.cursor, 2400);
    EXPECT_EQ(sound.volume, 0);
    EXPECT_EQ(sound.pan, 0);
    write(100);
    EXPECT_EQ(sound.locks.back().start, 2400);
    EXPECT_EQ(controller.position(), 0);
    EXPECT_TRUE(controller.halted.isSet());
}

TEST_F(Controller, SilenceOfUnsignedBytesIsTheirMiddle) {
    open({sampleType::int8, 1, 8000, fullWidth});
    EXPECT_TRUE(std::all_of(sound.memory.begin(), sound.memory.end(),
                            [](std::byte x) { return x == std::byte{0x80}; }));
}

struct ContainerRow {
    int type;
    int layout;
    int tag;
    int container;
    int valid;
};

TEST_F(Controller, ContainersFollowTheType) {
    constexpr ContainerRow rows[] = {{0, fullWidth, 1, 8, 8},   {1, fullWidth, 1, 16, 16},
                                     {1, 14, 1, 16, 14},        {2, fullWidth, 1, 24, 24},
                                     {3, fullWidth, 1, 32, 32}, {4, 20, 1, 32, 20},
                                     {5, fullWidth, 3, 32, 32}};
    for (const ContainerRow& row : rows) {
        open({row.type, 2, 48000, row.layout});
        const SoundSystem::Format& opened = sound.formats.back();
        EXPECT_EQ(opened.formatTag, row.tag) << row.type;
        EXPECT_EQ(opened.containerBits, row.container) << row.type;
        EXPECT_EQ(opened.validBits, row.valid) << row.type;
    }
}

TEST_F(Controller, DisableAndNoneAreTheNullTarget) {
    for (const char* name : {"Disable", "None"}) {
        controller.setDeviceName(name);
        open();
        EXPECT_TRUE(controller.isOpen()) << name;
        EXPECT_TRUE(controller.isNullTarget()) << name;
        EXPECT_TRUE(controller.isFallback()) << name;
        EXPECT_EQ(controller.openedDeviceName(), "None");
        EXPECT_TRUE(sound.formats.empty());
    }
    write(20'000);
    EXPECT_TRUE(controller.start());
    clock.advance(100);
    EXPECT_EQ(controller.position(), 4800) << "it advances with the clock";
}

TEST_F(Controller, WithoutChannelsItFallsToTheNullTarget) {
    open({sampleType::int16, 0, 48000, fullWidth});
    EXPECT_TRUE(controller.isNullTarget());
    EXPECT_TRUE(controller.isFallback());
}

TEST_F(Controller, ADeviceThatRefusesFallsToTheNullTargetAndIsTriedAgainAtTheNextOpen) {
    sound.refusals = 2;
    controller.setDeviceName("Card");
    open();
    EXPECT_TRUE(controller.isNullTarget());
    EXPECT_TRUE(controller.isFallback());
    EXPECT_EQ(controller.deviceName(), "Card");
    open(stereo44);
    EXPECT_FALSE(controller.isNullTarget());
    EXPECT_FALSE(controller.isFallback());
    EXPECT_EQ(controller.openedDeviceName(), "Card");
}

TEST_F(Controller, ADeviceThatIsGoneIsReplacedByTheDefaultOne) {
    sound.unknownDevice = true;
    controller.setDeviceName("Gone");
    open();
    EXPECT_FALSE(controller.isFallback());
    EXPECT_EQ(controller.openedDeviceName(), "");
}

TEST_F(Controller, AForcedOpenClosesTheConnectionToo) {
    open();
    sound.calls.clear();
    controller.open(false);
    EXPECT_EQ(sound.countOf("disconnect"), 0);
    controller.open(true);
    EXPECT_EQ(sound.countOf("disconnect"), 1);
    controller.open(false);
    EXPECT_EQ(sound.countOf("disconnect"), 1) << "once";
}

TEST_F(Controller, ConfiguringAnotherFormatSilencesAndClosesFirst) {
    open();
    sound.calls.clear();
    controller.configure(stereo44, 3, -1);
    ASSERT_FALSE(sound.calls.empty());
    EXPECT_EQ(sound.calls.front(), "volume -10000");
    EXPECT_EQ(sound.countOf("release"), 1);
    EXPECT_FALSE(controller.isOpen());
}

TEST_F(Controller, ConfiguringTheSameFormatKeepsTheDevice) {
    open();
    sound.calls.clear();
    controller.configure(stereo48, 3, -1);
    EXPECT_EQ(sound.countOf("release"), 0);
    EXPECT_TRUE(controller.isOpen());
}

TEST_F(Controller, RatesOfAnyHostAreHeldToWhatCanBeCounted) {
    open({sampleType::int16, 2, 0, fullWidth});
    EXPECT_EQ(controller.rate(), 1);
    open({sampleType::int16, 2, -44100, fullWidth});
    EXPECT_EQ(controller.rate(), 1);
    open({sampleType::int16, 2, 2'147'483'647, fullWidth});
    EXPECT_EQ(controller.rate(), 1'536'000);
    EXPECT_EQ(controller.bufferFrames(), 3'074'560);
}

TEST_F(Controller, TheStreamsPositionGoesOnAcrossDevices) {
    open();
    write(20'000);
    controller.start();
    clock.advance(100);
    controller.stop();
    EXPECT_EQ(controller.position(), 20'000) << "what was dropped counts as played";
    open(stereo44);
    EXPECT_EQ(controller.position(), 20'000);
    EXPECT_EQ(controller.writtenEnd(), 20'000);
    write(1000);
    EXPECT_EQ(controller.writtenEnd(), 21'000);
}

TEST_F(Controller, AnOpenOfARunningDeviceLeavesItStanding) {
    open();
    write(20'000);
    controller.start();
    clock.advance(100);
    controller.open(false);
    EXPECT_FALSE(sound.playing);
    EXPECT_FALSE(controller.running.isSet());
    EXPECT_TRUE(controller.halted.isSet());
    EXPECT_EQ(controller.position(), 20'000);
    write(20'000);
    EXPECT_TRUE(controller.start());
    EXPECT_TRUE(sound.playing);
}

TEST_F(Controller, WhileItOpensTheFeedThreadIsIdleAndNobodyIsLockedOut) {
    open();
    write(20'000);
    controller.start();
    clock.advance(10);
    int cursorReads = 0;
    bool locksWereFree = false;
    sound.onConnect = [&] {
        // The platform takes its time; this is the command thread.
        sound.calls.clear();
        clock.advance(3000);
        cursorReads = sound.countOf("cursor");
        controller.setVolume(0.25);
        EXPECT_EQ(write(10), WriteResult::refused);
        EXPECT_FALSE(controller.isOpen());
        locksWereFree = true;
    };
    controller.open(true);
    EXPECT_TRUE(locksWereFree);
    EXPECT_EQ(cursorReads, 0);
    EXPECT_TRUE(controller.isOpen());
    EXPECT_EQ(sound.volume, -1204) << "what was set meanwhile holds";
}

// -- Start, stop and under-run -----------------------------------------------------------------

TEST_F(Controller, StartsByItselfOnceEnoughIsQueued) {
    open();
    write(8191);
    controller.startIfReady();
    EXPECT_FALSE(controller.running.isSet());
    write(1);
    controller.startIfReady();
    EXPECT_TRUE(controller.running.isSet());
    EXPECT_FALSE(controller.halted.isSet());
    EXPECT_TRUE(sound.playing);
}

TEST_F(Controller, AtTheEndOneFrameIsEnough) {
    open();
    write(1);
    controller.startIfReady();
    EXPECT_FALSE(controller.running.isSet());
    controller.drainSoon();
    controller.startIfReady();
    EXPECT_TRUE(controller.running.isSet());
}

TEST_F(Controller, MoreAudioEndsTheDraining) {
    open();
    controller.drainSoon();
    write(100);
    controller.startIfReady();
    EXPECT_FALSE(controller.running.isSet());
}

TEST_F(Controller, WithoutAudioNothingIsStarted) {
    open();
    controller.drainSoon();
    controller.startIfReady();
    EXPECT_FALSE(controller.running.isSet());
    EXPECT_EQ(sound.countOf("play"), 0);
}

TEST_F(Controller, StartAppliesVolumeAndPanFirst) {
    open();
    controller.setVolume(0.5);
    controller.setPan(0.5);
    write(9000);
    sound.calls.clear();
    controller.start();
    ASSERT_GE(sound.calls.size(), 3u);
    sound.calls.resize(3);
    EXPECT_EQ(sound.calls, (std::vector<std::string>{"volume -602", "pan 602", "play"}));
}

TEST_F(Controller, AFailedStartLeavesItStanding) {
    open();
    write(9000);
    for (const Result result : {Result::failed, Result::lost}) {
        sound.playResults = {result};
        EXPECT_FALSE(controller.start());
        EXPECT_FALSE(controller.running.isSet());
        EXPECT_TRUE(controller.halted.isSet());
        EXPECT_EQ(controller.driftRatio(), 1.0);
    }
    EXPECT_TRUE(controller.start());
}

TEST_F(Controller, StartingTwiceIsOnce) {
    open();
    write(9000);
    EXPECT_TRUE(controller.start());
    EXPECT_TRUE(controller.start());
    EXPECT_EQ(sound.countOf("play"), 1);
}

TEST_F(Controller, TheStartIsTold) {
    int told = 0;
    controller.onStart([](void* counter) { ++*static_cast<int*>(counter); }, &told);
    open();
    write(9000);
    controller.start();
    controller.start();
    EXPECT_EQ(told, 1);
}

TEST_F(Controller, CommandsRunAtTheirCallersPriority) {
    int seen = -99;
    sound.onConnect = [&] { seen = kernel().currentPriority(); };
    kernel().setCurrentPriority(2);
    open();
    EXPECT_EQ(seen, 2);
}

TEST_F(Controller, StopDropsWhatIsQueuedAndClearsTheBuffer) {
    open();
    write(20'000, 77);
    controller.start();
    clock.advance(50);
    sound.calls.clear();
    controller.stop();
    EXPECT_EQ(sound.calls.front(), "volume -10000");
    EXPECT_FALSE(sound.playing);
    EXPECT_TRUE(controller.halted.isSet());
    EXPECT_EQ(sound.cursor, 0);
    EXPECT_EQ(controller.position(), 20'000);
    for (int frame = 0; frame < 98560; frame += 100)
        ASSERT_EQ(sampleAt(frame), 0) << frame;
    write(100, 5);
    EXPECT_EQ(sampleAt(0), 5) << "audio goes on where play starts";
    controller.startIfReady();
    EXPECT_FALSE(controller.running.isSet());
}

TEST_F(Controller, AfterAStopOfTheDriverNothingStartsByItself) {
    open();
    write(20'000);
    controller.start();
    controller.stop();
    clock.advance(5000);
    EXPECT_FALSE(sound.playing);
}

TEST_F(Controller, AStartThatComesAfterAStopStartsNothing) {
    open();
    write(20'000);
    controller.stop();
    EXPECT_FALSE(controller.start());
    EXPECT_FALSE(sound.playing);
    EXPECT_TRUE(controller.halted.isSet());
}

TEST_F(Controller, CloseGivesAllBack) {
    open();
    write(20'000);
    controller.start();
    controller.close();
    EXPECT_FALSE(controller.isOpen());
    EXPECT_TRUE(controller.halted.isSet());
    EXPECT_FALSE(sound.connected());
    EXPECT_EQ(controller.position(), 20'000);
    EXPECT_EQ(controller.openedDeviceName(), "");
    const std::size_t calls = sound.calls.size();
    clock.advance(5000);
    EXPECT_EQ(sound.calls.size(), calls);
}

// -- Writing -----------------------------------------------------------------------------------

TEST_F(Controller, WritesFollowEachOtherAndWrap) {
    open();
    write(96'000, 1);
    EXPECT_EQ(sound.locks.back().start, 2400);
    write(1000, 2);
    EXPECT_EQ(sampleAt(2400 + 95'999), 1);
    EXPECT_EQ(sampleAt(98'400), 2);
    EXPECT_EQ(sampleAt(98'559), 2);
    EXPECT_EQ(sampleAt(0), 2);
    EXPECT_EQ(sampleAt(839), 2);
    EXPECT_EQ(sampleAt(840), 0);
    write(1, 3);
    EXPECT_EQ(sampleAt(840), 3);
}

TEST_F(Controller, NoFramesAreNoWrite) {
    open();
    EXPECT_EQ(controller.write(nullptr, 0), WriteResult::written);
    EXPECT_EQ(controller.write(nullptr, -5), WriteResult::written);
    EXPECT_EQ(controller.writtenEnd(), 0);
}

TEST_F(Controller, ARefusedWriteHasNotHappened) {
    open();
    sound.lockResults = {Result::lost};
    EXPECT_EQ(write(100), WriteResult::refused);
    EXPECT_EQ(controller.writtenEnd(), 0);
    EXPECT_TRUE(controller.restore());
    EXPECT_EQ(write(100), WriteResult::written);
    EXPECT_EQ(sound.locks.back().start, 2400);
    sound.restores = false;
    EXPECT_FALSE(controller.restore());
}

TEST_F(Controller, SkippedFramesCount) {
    open();
    controller.skip(500);
    EXPECT_EQ(controller.writtenEnd(), 500);
    write(10);
    EXPECT_EQ(sound.locks.back().start, 2900);
}

TEST_F(Controller, TakenBackFramesAreWrittenOver) {
    open();
    write(5000, 1);
    EXPECT_EQ(controller.rewindTo(3000), 3000);
    EXPECT_EQ(controller.writtenEnd(), 3000);
    write(10, 9);
    EXPECT_EQ(sampleAt(2400 + 2999), 1);
    EXPECT_EQ(sampleAt(2400 + 3000), 9);
}

TEST_F(Controller, TakingBackAcrossTheBuffersEnd) {
    open();
    write(96'000, 1);
    write(1000, 2);
    EXPECT_EQ(controller.rewindTo(95'900), 95'900);
    write(5, 4);
    EXPECT_EQ(sampleAt(2400 + 95'900), 4);
}

TEST_F(Controller, TakingBackEndsTheDraining) {
    open();
    write(100);
    controller.drainSoon();
    controller.rewindTo(50);
    controller.startIfReady();
    EXPECT_FALSE(controller.running.isSet());
}

// -- Volume ------------------------------------------------------------------------------------

TEST_F(Controller, VolumeAndPanHoldAtOnce) {
    open();
    controller.setVolume(0.0);
    EXPECT_EQ(sound.volume, -10000);
    controller.setVolume(1.0);
    EXPECT_EQ(sound.volume, 0);
    sound.calls.clear();
    controller.setVolume(0.25);
    EXPECT_EQ(sound.calls, (std::vector<std::string>{"volume -1204", "pan 0"}));
    controller.setPan(-0.5);
    EXPECT_EQ(sound.pan, -602);
}

TEST_F(Controller, VolumeAndPanSurviveANewDevice) {
    controller.setVolume(0.5);
    controller.setPan(1.0);
    open();
    EXPECT_EQ(sound.volume, -602);
    EXPECT_EQ(sound.pan, 10000);
    open(stereo44);
    EXPECT_EQ(sound.volume, -602);
}

// -- Many threads ------------------------------------------------------------------------------

struct Threading {
    TestClock::Mode mode;
    std::uint32_t seed;
};

class ControllerThreads : public testing::TestWithParam<Threading> {};

TEST_P(ControllerThreads, AnyCallsAtOnceKeepThePositionInOrder) {
    TestClock clock{GetParam().mode, GetParam().seed};
    SystemClock time;
    TestSound sound{clock};
    sound.cardRate = 1.001;
    DeviceController controller{time, &sound};
    controller.configure(stereo48, 3, -1);
    controller.open(false);
    std::atomic<bool> done{false};
    {
        std::vector<std::unique_ptr<Worker>> workers;
        workers.push_back(std::make_unique<Worker>([&] {
            std::mt19937 random{GetParam().seed};
            const std::vector<std::int16_t> samples(20'000, 1);
            for (int i = 0; i < 400; ++i) {
                switch (random() % 12) {
                case 0:
                    controller.stop();
                    break;
                case 1:
                    controller.rewindTo(controller.position() + 500);
                    break;
                case 2:
                    controller.drainSoon();
                    break;
                case 3:
                    controller.configure(random() % 2 == 0 ? stereo48 : stereo44, 3, -1);
                    controller.open(random() % 2 == 0);
                    break;
                case 4:
                    controller.restore();
                    break;
                default: {
                    const int frames = static_cast<int>(random() % 5000);
                    if (controller.writtenEnd() - controller.position() + frames < 60'000)
                        if (controller.write(samples.data(), frames) == WriteResult::refused)
                            controller.skip(frames);
                    controller.startIfReady();
                }
                }
                kernel().sleep(static_cast<int>(random() % 120));
            }
            done.store(true);
        }));
        workers.push_back(std::make_unique<Worker>([&] {
            std::int64_t before = 0;
            while (!done.load()) {
                const std::int64_t position = controller.position();
                EXPECT_GE(position, before);
                before = position;
                EXPECT_GE(controller.driftRatio(), 0.96);
                EXPECT_LE(controller.driftRatio(), 1.04);
                controller.setVolume(0.5);
                controller.isNullTarget();
                controller.openedDeviceName();
                kernel().sleep(7);
            }
        }));
    }
    EXPECT_LE(controller.position(), controller.writtenEnd());
    controller.stopThreads();
}

std::vector<Threading> threadings() {
    std::vector<Threading> all;
    for (std::uint32_t seed = 0; seed < 12; ++seed)
        all.push_back({TestClock::Mode::serial, seed});
    for (std::uint32_t seed = 0; seed < 4; ++seed)
        all.push_back({TestClock::Mode::parallel, seed});
    return all;
}

INSTANTIATE_TEST_SUITE_P(Threads, ControllerThreads, testing::ValuesIn(threadings()),
                         [](const auto& tested) {
                             return (tested.param.mode == TestClock::Mode::serial ? "serial"
                                                                                  : "parallel") +
                                    std::to_string(tested.param.seed);
                         });

} // namespace
} // namespace velorine::test
