#include "output/OutputDevice.h"

#include "foundation/PriorityScope.h"
#include "tests/support/ScriptedSound.h"
#include "tests/support/TestClock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace velorine::test {
namespace {

using Result = SoundBuffer::Result;
using Calls = std::vector<std::string>;

// -- Volume and pan ----------------------------------------------------------------------------

TEST(Attenuation, OfVolumes) {
    constexpr std::pair<int, int> rows[] = {{255, 0},    {254, -3},   {200, -211}, {128, -599},
                                            {127, -605}, {64, -1201}, {32, -1803}, {16, -2405},
                                            {1, -4813},  {0, -10000}};
    for (const auto& [volume, hundredths] : rows)
        EXPECT_EQ(attenuationFor(static_cast<double>(static_cast<float>(volume) / 255.0f)),
                  hundredths)
            << volume;
}

TEST(Attenuation, OfVolumesWhereNobodyListens) {
    for (const auto& [volume, hundredths] : {std::pair{255, -1204}, {128, -1803}, {64, -2405}})
        EXPECT_EQ(attenuationFor(static_cast<double>(static_cast<float>(volume) / 255.0f * 0.25f)),
                  hundredths);
}

TEST(Attenuation, IsHeldToItsRange) {
    EXPECT_EQ(attenuationFor(8.0), 0);
    EXPECT_EQ(attenuationFor(-1.0), -10000);
    EXPECT_EQ(attenuationFor(1e-9), -10000);
    EXPECT_EQ(attenuationFor(std::nan("")), -10000);
}

TEST(Attenuation, OfPans) {
    constexpr std::pair<int, int> rows[] = {{0, 0},      {64, 602},   {-64, -602},  {32, 250},
                                            {100, 1320}, {127, 4214}, {128, 10000}, {-128, -10000},
                                            {2, 14},     {-2, -14}};
    for (const auto& [pan, hundredths] : rows)
        EXPECT_EQ(panAttenuationFor(static_cast<double>(static_cast<float>(pan) / 128.0f)),
                  hundredths)
            << pan;
    EXPECT_EQ(panAttenuationFor(3.0), 10000);
    EXPECT_EQ(panAttenuationFor(-3.0), -10000);
}

// -- Null target -------------------------------------------------------------------------------

class NullTarget : public testing::Test {
protected:
    NullTarget() { device.openNull(48000, 98560); }

    TestClock clock;
    SystemClock time;
    OutputDevice device{time, nullptr};
};

TEST_F(NullTarget, IsOpenAndStands) {
    EXPECT_TRUE(device.isOpen());
    EXPECT_TRUE(device.isNullTarget());
    clock.advance(500);
    EXPECT_EQ(device.position(), 0);
}

TEST_F(NullTarget, CountsFramesAgainstTheClock) {
    EXPECT_EQ(device.play(), Result::ok);
    clock.advance(1000);
    EXPECT_EQ(device.position(), 48000);
}

TEST_F(NullTarget, PositionWrapsAtTheBufferEnd) {
    device.openNull(44100, 90760);
    device.play();
    clock.advance(3000);
    EXPECT_EQ(device.position(), 41540);
}

/// A clock whose millisecond is one tick of the system's.
class TickClock final : public TestClock {
public:
    std::int64_t counter() override { return counterStart + ticks() / 10'000; }
};

TEST(NullTargetTicks, AreDividedByAHundredFirst) {
    TickClock clock;
    SystemClock time;
    OutputDevice device{time, nullptr};
    device.openNull(44100, 90760);
    device.play();
    clock.advance(99);
    EXPECT_EQ(device.position(), 0);
    clock.advance(12'345'678 - 99);
    EXPECT_EQ(device.position(), 54444);
}

TEST_F(NullTarget, DaysOfPlayingDoNotOverflow) {
    device.openNull(192000, 386560);
    device.play();
    for (int i = 0; i < 30; ++i)
        clock.advance(2'000'000'000); // 694 days
    EXPECT_EQ(device.position(), 60'000'000LL * 192'000 % 386'560);
}

TEST_F(NullTarget, AStopKeepsThePositionAndAStartGoesOn) {
    device.play();
    clock.advance(100);
    device.stop();
    clock.advance(5000);
    EXPECT_EQ(device.position(), 4800);
    device.play();
    clock.advance(100);
    EXPECT_EQ(device.position(), 9600);
}

TEST_F(NullTarget, StartingTwiceIsOnce) {
    device.play();
    clock.advance(100);
    device.play();
    clock.advance(100);
    EXPECT_EQ(device.position(), 9600);
    device.stop();
    device.stop();
    EXPECT_EQ(device.position(), 9600);
}

TEST_F(NullTarget, CanBePlaced) {
    device.setPosition(2400);
    EXPECT_EQ(device.position(), 2400);
    device.play();
    clock.advance(10);
    device.setPosition(98000);
    clock.advance(20);
    EXPECT_EQ(device.position(), 98000 + 960 - 98560);
}

TEST_F(NullTarget, APlaceBeyondTheBufferWraps) {
    device.setPosition(98560 + 5);
    EXPECT_EQ(device.position(), 5);
}

TEST_F(NullTarget, LocksYieldNoRegions) {
    EXPECT_EQ(device.lockRegion(0, 500), Result::ok);
    EXPECT_EQ(device.regions().first, nullptr);
    EXPECT_EQ(device.regions().second, nullptr);
    device.unlockRegion();
    EXPECT_TRUE(device.restore());
    EXPECT_EQ(device.firmFrames(), 0);
}

TEST_F(NullTarget, OpeningItAgainBeginsAtZero) {
    device.play();
    clock.advance(100);
    device.openNull(44100, 90760);
    clock.advance(100);
    EXPECT_EQ(device.position(), 0);
    EXPECT_EQ(device.frames(), 90760);
}

TEST_F(NullTarget, ClosedItIsNoDevice) {
    device.play();
    device.close(true);
    EXPECT_FALSE(device.isOpen());
    EXPECT_FALSE(device.isNullTarget());
    EXPECT_EQ(device.position(), 0);
    EXPECT_EQ(device.play(), Result::failed);
    EXPECT_EQ(device.lockRegion(0, 10), Result::failed);
    EXPECT_FALSE(device.restore());
}

// -- A buffer of the sound system --------------------------------------------------------------

class Device : public testing::Test {
protected:
    Device() {
        format.rate = 1000;
        format.bufferFrames = 4560;
    }

    void open() { device.openBuffer(format, name, guid); }

    TestClock clock;
    SystemClock time;
    ScriptedSound sound;
    OutputDevice device{time, &sound};
    SoundSystem::Format format;
    std::string name = "Card";
    std::string guid = "{card}";
};

TEST_F(Device, IsConnectedAndMadeInTheFormatThatIsWanted) {
    open();
    EXPECT_TRUE(device.isOpen());
    EXPECT_FALSE(device.isNullTarget());
    EXPECT_EQ(sound.calls, (Calls{"connect Card", "create"}));
    EXPECT_EQ(device.frames(), 4560);
    EXPECT_EQ(device.format().rate, 1000);
}

TEST_F(Device, ARefusalIsTriedOnceMoreOnANewConnection) {
    sound.refusals = 1;
    open();
    EXPECT_FALSE(device.isNullTarget());
    EXPECT_EQ(sound.calls,
              (Calls{"connect Card", "create", "disconnect", "connect Card", "create"}));
}

TEST_F(Device, ASecondRefusalEndsOnTheNullTarget) {
    sound.refusals = 2;
    open();
    EXPECT_TRUE(device.isOpen());
    EXPECT_TRUE(device.isNullTarget());
    EXPECT_EQ(sound.countOf("create"), 2);
    device.play();
    clock.advance(100);
    EXPECT_EQ(device.position(), 100);
}

TEST_F(Device, ADeviceThatCanNotBeHadEndsOnTheNullTarget) {
    sound.connectFailures = 2;
    open();
    EXPECT_TRUE(device.isNullTarget());
    EXPECT_EQ(sound.countOf("create"), 0);
    EXPECT_FALSE(sound.connected());
}

TEST_F(Device, AnUnknownDeviceFallsBackToTheDefaultOneAndForgetsItsName) {
    sound.unknownDevice = true;
    open();
    EXPECT_FALSE(device.isNullTarget());
    EXPECT_EQ(name, "");
    EXPECT_EQ(guid, "");
}

TEST_F(Device, WithoutChannelsItIsTheNullTarget) {
    format.channels = 0;
    open();
    EXPECT_TRUE(device.isNullTarget());
    EXPECT_TRUE(sound.calls.empty());
    EXPECT_EQ(name, "Card");
}

TEST_F(Device, WithoutASoundSystemItIsTheNullTarget) {
    OutputDevice silent{time, nullptr};
    silent.openBuffer(format, name, guid);
    EXPECT_TRUE(silent.isNullTarget());
    EXPECT_EQ(silent.frames(), 4560);
}

TEST_F(Device, WhileADeviceIsChosenTheCallersPriorityIsRaised) {
    int seen = -99;
    sound.onConnect = [&] { seen = kernel().currentPriority(); };
    kernel().setCurrentPriority(0);
    open();
    EXPECT_EQ(seen, 1);
    EXPECT_EQ(kernel().currentPriority(), 0);
    kernel().setCurrentPriority(15);
    open();
    EXPECT_EQ(seen, 15);
}

TEST_F(Device, OpeningAnewGivesTheOldBufferBackInSilence) {
    open();
    device.lockRegion(0, 10);
    sound.calls.clear();
    open();
    EXPECT_EQ(sound.calls,
              (Calls{"unlock", "volume -10000", "stop", "release", "connect Card", "create"}));
}

TEST_F(Device, ClosingKeepsTheConnectionUnlessTold) {
    open();
    device.close(false);
    EXPECT_TRUE(sound.connected());
    EXPECT_FALSE(device.isOpen());
    open();
    device.close(true);
    EXPECT_FALSE(sound.connected());
}

TEST_F(Device, TheCursorIsHeldToTheBuffer) {
    open();
    sound.cursor = 100'000;
    EXPECT_EQ(device.position(), 4559);
    sound.cursor = -3;
    EXPECT_EQ(device.position(), 0);
    sound.cursor = 77;
    EXPECT_EQ(device.position(), 77);
    sound.cursorReadable = false;
    EXPECT_EQ(device.position(), 0);
}

TEST_F(Device, ALockThatIsRefusedHasNoRegions) {
    open();
    sound.lockResults = {Result::lost, Result::failed};
    EXPECT_EQ(device.lockRegion(0, 10), Result::lost);
    EXPECT_EQ(device.regions().first, nullptr);
    device.unlockRegion();
    EXPECT_EQ(device.lockRegion(0, 10), Result::failed);
    device.unlockRegion();
    EXPECT_EQ(sound.countOf("unlock"), 0);
}

TEST_F(Device, AStandingLockIsGivenBackBeforeTheNext) {
    open();
    device.lockRegion(0, 10);
    device.lockRegion(10, 10);
    EXPECT_EQ(sound.countOf("unlock"), 1);
    device.unlockRegion();
    device.unlockRegion();
    EXPECT_EQ(sound.countOf("unlock"), 2);
}

TEST_F(Device, WhatTheBufferSaysIsHandedOn) {
    open();
    sound.playResults = {Result::lost};
    EXPECT_EQ(device.play(), Result::lost);
    EXPECT_EQ(device.play(), Result::ok);
    sound.firm = 321;
    EXPECT_EQ(device.firmFrames(), 321);
    sound.restores = false;
    EXPECT_FALSE(device.restore());
    device.setVolume(-300);
    device.setPan(200);
    EXPECT_EQ(sound.volume, -300);
    EXPECT_EQ(sound.pan, 200);
}

} // namespace
} // namespace velorine::test
