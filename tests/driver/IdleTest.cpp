#include "tests/driver/ScriptedChain.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

class Idle : public testing::Test, protected ChainRig {
protected:
    Idle() { chain.start(); }

    /// Plays `frames` frames and waits until the device has run dry.
    void playDry(int frames) {
        write(frames);
        chain.requestService();
        while (!chain.output.device.running.isSet())
            clock.advance(10);
        while (chain.output.device.running.isSet())
            clock.advance(10);
    }

    bool deviceOpen() const { return chain.output.device.isOpen(); }
};

TEST_F(Idle, ADryOutputIsClearedAfterASecondAndReleasedAfterSix) {
    playDry(20'000);
    const int resets = chain.middle.resets;
    clock.advance(900);
    EXPECT_EQ(chain.middle.resets, resets);
    clock.advance(200);
    EXPECT_EQ(chain.middle.resets, resets + 1) << "after a second the chain forgets";
    EXPECT_TRUE(deviceOpen());
    clock.advance(4700);
    EXPECT_TRUE(deviceOpen()) << "5.8 s";
    clock.advance(400);
    EXPECT_FALSE(deviceOpen()) << "6.2 s";
    EXPECT_EQ(sound.closes, 1);
}

TEST_F(Idle, TheNextWritePlaysAgain) {
    playDry(20'000);
    clock.advance(8000);
    ASSERT_FALSE(deviceOpen());
    for (int i = 0; i < 30; ++i)
        write(1000);
    chain.drain(-1);
    clock.advance(100);
    EXPECT_TRUE(deviceOpen());
    EXPECT_EQ(heard(), all());
    EXPECT_EQ(chain.output.position(), 50'000);
}

TEST_F(Idle, AWriteInBetweenLosesNothing) {
    for (const int pauseMs : {200, 950, 1100, 2000, 5800, 6300}) {
        playDry(10'000);
        clock.advance(pauseMs);
    }
    EXPECT_EQ(heard(), all());
    EXPECT_EQ(chain.output.writtenEnd(), 60'000);
}

TEST_F(Idle, TheInputIsKept) {
    playDry(20'000);
    clock.advance(8000);
    EXPECT_EQ(chain.input.hostRing.end(), 20'000);
    EXPECT_EQ(chain.writtenEnd(), ticksPerSecond * 20'000 / 48'000);
}

TEST_F(Idle, TheDeviceStaysWhileItPlays) {
    for (int i = 0; i < 100; ++i) {
        write(4800);
        clock.advance(100);
    }
    EXPECT_TRUE(chain.output.device.running.isSet());
    EXPECT_EQ(chain.middle.resets, 0);
    EXPECT_EQ(sound.opens, 1);
}

TEST_F(Idle, AnEngineThatNeverPlayedIsLeftInPeace) {
    clock.advance(60'000);
    EXPECT_EQ(sound.opens, 0);
    write(20'000);
    chain.drain(-1);
    clock.advance(100);
    EXPECT_EQ(heard(), all());
}

TEST_F(Idle, TheMachineIsKeptAwakeWhileAudioGoesOut) {
    write(20'000);
    chain.requestService();
    for (int i = 0; i < 40; ++i) {
        write(4800);
        clock.advance(100);
    }
    awake.said.clear();
    clock.advance(30'000);
    ASSERT_FALSE(awake.said.empty());
    EXPECT_FALSE(awake.said.back()) << "not while nothing plays";
}

TEST_F(Idle, ALongQuietPlayRequiresTheMachine) {
    // The thread sleeps for more than a second only behind a deep queue.
    sound.playFails = false;
    chain.output.target.adaptive.store(false);
    for (int i = 0; i < 70; ++i)
        write(1000);
    clock.advance(1300);
    ASSERT_TRUE(chain.output.device.running.isSet());
    ASSERT_FALSE(awake.said.empty());
    EXPECT_TRUE(awake.said.back());
}

TEST_F(Idle, NothingMovesWhileTheChainIsIdle) {
    playDry(20'000);
    clock.advance(10'000);
    const std::size_t calls = chain.log.size();
    clock.advance(3'600'000);
    EXPECT_EQ(chain.log.size(), calls);
}

TEST_F(Idle, AFileIsNeverIdle) {
    ChainRig& rig = *this;
    rig.chain.end();
    // An engine that records has no device that could run dry.
    ScriptedChain recording{{time, &sound, files, awake}};
    recording.output.recordSwitch = true;
    recording.output.recorder.recordmode.store(1);
    recording.output.recorder.setPath("file.wav", true);
    recording.start();
    const std::vector<std::int32_t> samples(2000, 7);
    recording.input.append(formatOf(sampleType::int32, 2, 48000), samples.data(), 8000, 0, 208'333);
    clock.advance(20'000);
    EXPECT_EQ(recording.middle.resets, 0);
    EXPECT_EQ(recording.output.position(), 1000);
}

} // namespace
} // namespace velorine::test
