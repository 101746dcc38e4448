#include "foundation/Thread.h"
#include "host/Module.h"
#include "host/Session.h"
#include "tests/host/FeedRig.h"
#include "tests/support/AnsweringWindow.h"
#include "tests/support/TestHost.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace velorine::test {
namespace {

class TransportUnit : public testing::Test, protected FeedRig {};

// -- Open --------------------------------------------------------------------------------------

TEST_F(TransportUnit, AnOpenStoresDepthRateAndChannels) {
    for (const auto& [bits, type] :
         {std::pair{8, 0}, {16, 1}, {24, 2}, {28, 3}, {32, 4}, {64, 6}}) {
        transport.open(bits * 1000, bits % 7, bits);
        EXPECT_EQ(stream.format(), formatOf(type, bits % 7, bits * 1000));
    }
}

TEST_F(TransportUnit, AnUnknownDepthKeepsTheOneBefore) {
    transport.open(44100, 2, 24);
    for (const int bits : {12, 0, -16, 20, 48, 33, 2'147'483'647}) {
        transport.open(48000, 1, bits);
        EXPECT_EQ(stream.format(), formatOf(sampleType::int24, 1, 48000)) << bits;
    }
}

TEST_F(TransportUnit, BeforeTheFirstKnownDepthItIsSixteenBits) {
    transport.open(44100, 2, 12);
    EXPECT_EQ(stream.format().type, sampleType::int16);
}

TEST_F(TransportUnit, AnOpenForgetsTheTrackBefore) {
    stream.trackLength.store(55);
    stream.startupCalls.store(3);
    stream.paused.store(1);
    stream.silenceFrames.store(9);
    stream.update([](HostTimes& times) { times.seekOffset = 77; });
    transport.open(44100, 2, 16);
    EXPECT_EQ(stream.trackLength.load(), -1);
    EXPECT_EQ(stream.startupCalls.load(), 0);
    EXPECT_EQ(stream.paused.load(), 0);
    EXPECT_EQ(stream.silenceFrames.load(), 0);
    EXPECT_TRUE(stream.skipSilence.load());
    EXPECT_EQ(stream.times().seekOffset, 0);
}

TEST_F(TransportUnit, ATrackThatEndedWhilePausedIsNotHeardAnyMore) {
    engine.start(nullptr, false);
    open(48000, 2, 16);
    writeFrames(20'000);
    clock.advance(50);
    transport.pause(1);
    transport.open(48000, 2, 16);
    EXPECT_EQ(engine.tail.pausedBits.load(), 0);
    EXPECT_EQ(hostRing().count(), 1);
    EXPECT_TRUE(hostRing().at(0).empty());
    EXPECT_EQ(hostRing().end(), 20'000);
}

// -- Close -------------------------------------------------------------------------------------

TEST_F(TransportUnit, AGaplessCloseBreaksNothing) {
    VelorineHostWindow host{};
    host.send = [](VelorineHostWindow*, unsigned, std::uintptr_t, std::intptr_t lParam) {
        return lParam == 400 ? std::intptr_t{1} : std::intptr_t{0};
    };
    const AnsweringWindow hostWindow{host};
    window.keep(hostWindow.handle());
    open(48000, 2, 16);
    writeFrames(4800);
    transport.close();
    const HostTimes times = stream.times();
    EXPECT_TRUE(stream.endOfFile.load());
    EXPECT_EQ(times.segmentFrames, 0);
    EXPECT_EQ(times.segmentBase, 1'000'000);
    EXPECT_EQ(times.timeZero, 1'000'000);
    EXPECT_EQ(times.writtenEnd, 1'000'000);
    EXPECT_EQ(times.trackStart, 1'000'000);
    EXPECT_FALSE(times.seekPending);
    EXPECT_EQ(stream.fadeInKind.load(), 0);
}

TEST_F(TransportUnit, AStopAwaitsTheNextTrackAtZero) {
    open(48000, 2, 16);
    writeFrames(4800);
    transport.close();
    const HostTimes times = stream.times();
    EXPECT_TRUE(times.seekPending);
    EXPECT_EQ(times.pendingSeek, 0);
    EXPECT_EQ(times.trackStart, 1'000'000) << "the engine's end";
    EXPECT_EQ(times.writtenEnd, 0) << "what is heard";
    EXPECT_EQ(stream.fadeInKind.load(), fadeInAfterStop);
    EXPECT_EQ(timeLine.outputTime(), 0);
}

TEST_F(TransportUnit, ACloseWithoutAnOpenIsHarmless) {
    transport.close();
    engine.start(nullptr, false);
    transport.close();
    transport.close();
    EXPECT_TRUE(hostRing().empty());
}

TEST_F(TransportUnit, AHostWithoutAWindowStops) {
    open(48000, 2, 16);
    transport.close();
    EXPECT_FALSE(stream.endOfFile.load());
}

// -- Seek and pause ----------------------------------------------------------------------------

TEST_F(TransportUnit, ASeekSetsItsTimes) {
    open(48000, 2, 16);
    writeFrames(48000);
    transport.flush(2500);
    const HostTimes times = stream.times();
    EXPECT_TRUE(times.seekPending);
    EXPECT_EQ(times.pendingSeek, 25'000'000);
    EXPECT_EQ(times.seekOffset, 25'000'000);
    EXPECT_EQ(times.trackStart, 10'000'000 - 25'000'000);
    EXPECT_EQ(stream.startupCalls.load(), 0);
    EXPECT_EQ(stream.fadeInKind.load(), fadeInAfterSeek);
}

TEST_F(TransportUnit, PauseTellsTheStateBefore) {
    engine.start(nullptr, false);
    EXPECT_EQ(transport.pause(1), 0);
    EXPECT_EQ(transport.pause(1), 1);
    EXPECT_EQ(transport.pause(7), 1);
    EXPECT_EQ(transport.pause(0), 7);
    EXPECT_EQ(transport.pause(0), 0);
}

TEST_F(TransportUnit, PauseAppliesAPendingSeek) {
    open(48000, 2, 16);
    writeFrames(480);
    transport.flush(9000);
    transport.pause(1);
    EXPECT_FALSE(stream.times().seekPending);
    EXPECT_EQ(timeLine.outputTime(), 9000);
}

// -- The pause word ----------------------------------------------------------------------------

TEST_F(TransportUnit, ThePauseWordIsMadeOfBits) {
    engine.start(nullptr, false);
    engine.beep.store(false);
    EXPECT_EQ(engine.setPaused(true, 0, 0, false), 0) << "nothing to change";
    EXPECT_EQ(engine.setPaused(true, 1, 0, false), 1);
    EXPECT_EQ(engine.setPaused(true, 6, 0, false), 7);
    EXPECT_EQ(engine.setPaused(false, 2, 0, false), 5);
    EXPECT_EQ(engine.setPaused(false, 5, 0, false), 0);
    EXPECT_EQ(engine.setPaused(false, 1, 0, false), 0);
}

TEST_F(TransportUnit, OnlyAChangeFromOrToZeroTouchesTheChain) {
    engine.start(nullptr, false);
    engine.beep.store(false);
    open(48000, 2, 16);
    writeFrames(40'000);
    clock.advance(100);
    engine.setPaused(true, 1, 0, false);
    const std::int64_t end = engine.output.writtenEnd();
    engine.setPaused(true, 2, 0, false);
    EXPECT_EQ(engine.output.writtenEnd(), end);
    EXPECT_EQ(engine.tail.beepPending.load(), 0);
}

TEST_F(TransportUnit, ABeepIsPutInWhereItIsAskedForAndLittleIsQueued) {
    engine.start(nullptr, false);
    open(48000, 2, 16);
    writeFrames(40'000);
    clock.advance(100);
    engine.beep.store(false);
    engine.setPaused(true, 1, 1, false);
    const std::int64_t silent = engine.output.writtenEnd();
    engine.setPaused(false, 1, 1, false);
    engine.beep.store(true);
    engine.setPaused(true, 1, 1, false);
    EXPECT_GT(engine.output.writtenEnd(), silent);
    engine.setPaused(false, 1, 0, false);
}

TEST(PauseWord, TwoThreadsThatChangeThePauseWordLoseNoBit) {
    for (std::uint32_t seed = 1; seed < 30; ++seed) {
        FeedRig rig{TestClock::Mode::serial, seed};
        rig.engine.beep.store(false);
        struct Setter final : Thread {
            Setter(FxEngine& fxEngine, int bit) : engine(fxEngine), mask(bit) { start(false); }
            ~Setter() override { join(); }
            std::uint32_t run() override {
                for (int i = 0; i < 20; ++i) {
                    engine.setPaused(true, mask, 0, false);
                    kernel().sleep(0);
                    EXPECT_NE(engine.tail.pausedBits.load() & mask, 0);
                    engine.setPaused(false, mask, 0, false);
                }
                return 0;
            }
            FxEngine& engine;
            const int mask;
        };
        {
            const Setter one{rig.engine, 2};
            const Setter other{rig.engine, 4};
        }
        EXPECT_EQ(rig.engine.tail.pausedBits.load(), 0);
    }
}

// -- Volume and pan ----------------------------------------------------------------------------

TEST(HostVolume, BecomesHundredthsOfADecibelOnTheDevice) {
    TestHost host;
    host.open(44100, 2, 16);
    host.write(std::vector<std::int16_t>(2 * 20'000, 9000));
    host.advance(50);
    constexpr std::pair<int, int> rows[] = {
        {254, -3},   {200, -211}, {128, -599}, {127, -605}, {64, -1201}, {32, -1803},
        {16, -2405}, {1, -4813},  {0, -10000}, {255, 0},    {1000, 0},   {2'147'483'647, 0}};
    for (const auto& [volume, hundredths] : rows) {
        host.out.SetVolume(volume);
        EXPECT_EQ(host.sound.volume, hundredths) << volume;
    }
    host.out.SetVolume(128);
    host.out.SetVolume(-1);
    host.out.SetVolume(-2'147'483'647);
    EXPECT_EQ(host.sound.volume, -599) << "negative ones are ignored";
}

TEST(HostVolume, IsAQuarterOnTheNullTarget) {
    TestHost::Setup setup;
    setup.withSound = false;
    TestHost host{setup};
    host.open(44100, 2, 16);
    host.write(std::vector<std::int16_t>(2 * 20'000, 9000));
    ASSERT_TRUE(moduleStatus().nullTarget);
    Transport& transport = Module::instance().session()->transport;
    for (const int volume : {255, 128, 64, 0}) {
        host.out.SetVolume(volume);
        EXPECT_FLOAT_EQ(static_cast<float>(transport.deviceGain()),
                        static_cast<float>(volume) / 255.0f * 0.25f);
    }
}

TEST(HostVolume, IsAQuarterInAFile) {
    TestHost::Setup setup;
    setup.options.recordMode = 1;
    setup.options.recordPath = testing::TempDir() + "velorine-volume.wav";
    TestHost host{setup};
    host.out.SetVolume(255);
    EXPECT_FLOAT_EQ(static_cast<float>(Module::instance().session()->transport.deviceGain()),
                    0.25f);
}

TEST(HostVolume, TheSameAgainTouchesNothing) {
    TestHost host;
    host.open(44100, 2, 16);
    host.write(std::vector<std::int16_t>(2 * 20'000, 9000));
    host.advance(50);
    host.out.SetVolume(128);
    host.sound.volume = 1;
    host.out.SetVolume(128);
    EXPECT_EQ(host.sound.volume, 1);
    host.out.SetVolume(127);
    EXPECT_EQ(host.sound.volume, -605);
}

TEST(HostVolume, LeavesTheSamplesAlone) {
    TestHost host;
    host.open(44100, 2, 16);
    host.out.SetVolume(1);
    host.write(std::vector<std::int16_t>(2 * 20'000, 9000));
    host.playOut();
    const auto heard = host.sound.heard<std::int16_t>();
    EXPECT_EQ(*std::max_element(heard.begin(), heard.end()), 9000);
}

TEST(HostPan, BecomesHundredthsOfADecibelOnTheDevice) {
    TestHost host;
    host.open(44100, 2, 16);
    host.write(std::vector<std::int16_t>(2 * 20'000, 9000));
    host.advance(50);
    constexpr std::pair<int, int> rows[] = {
        {64, 602}, {-64, -602}, {32, 250}, {100, 1320}, {127, 4214}, {128, 10000}, {-128, -10000},
        {2, 14},   {1, 0},      {3, 21},   {-1, 0},     {-2, -14},   {0, 0}};
    for (const auto& [pan, hundredths] : rows) {
        host.out.SetPan(pan);
        EXPECT_EQ(host.sound.pan, hundredths) << pan;
    }
    host.out.SetPan(64);
    for (const int outside : {129, -129, 2'147'483'647, -2'147'483'647}) {
        host.out.SetPan(outside);
        EXPECT_EQ(host.sound.pan, 602) << "it changes nothing";
    }
}

TEST(HostPan, AndVolumeAreSetTogether) {
    TestHost host;
    host.open(44100, 2, 16);
    host.write(std::vector<std::int16_t>(2 * 20'000, 9000));
    host.advance(50);
    host.out.SetPan(64);
    host.sound.pan = 1;
    host.out.SetVolume(64);
    EXPECT_EQ(host.sound.pan, 602);
    EXPECT_EQ(host.sound.volume, -1201);
}

// -- Length of the track -----------------------------------------------------------------------

TEST_F(TransportUnit, TheLengthOfATrackIsAskedOnce) {
    static int asked;
    asked = 0;
    VelorineHostWindow host{};
    host.send = [](VelorineHostWindow*, unsigned message, std::uintptr_t wParam,
                   std::intptr_t lParam) -> std::intptr_t {
        EXPECT_EQ(message, 1024u);
        if (lParam != 105) return 0;
        EXPECT_EQ(wParam, 1u);
        ++asked;
        return 180;
    };
    const AnsweringWindow hostWindow{host};
    window.keep(hostWindow.handle());
    EXPECT_EQ(transport.trackLength(), 1'800'000'000);
    EXPECT_EQ(transport.trackLength(), 1'800'000'000);
    EXPECT_EQ(asked, 1);
    open(48000, 2, 16);
    transport.trackLength();
    EXPECT_EQ(asked, 2);
}

} // namespace
} // namespace velorine::test
