#include "output/pulse/PulseSound.h"

#include "foundation/Kernel.h"
#include "foundation/SystemClock.h"
#include "tests/pulse/Await.h"
#include "tests/pulse/Recorder.h"
#include "tests/pulse/SoundDaemon.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace velorine::test {
namespace {

class PulseSystem : public testing::Test {
protected:
    static SoundSystem::Format format(int bits, int channels, int rate, int tag = 1) {
        return {tag, channels, rate, bits, bits, 0, 2 * rate + 2560};
    }
    std::unique_ptr<SoundBuffer> buffer(std::string description,
                                        const SoundSystem::Format& wanted) {
        std::string guid;
        EXPECT_TRUE(sound.connect(description, guid));
        return sound.createBuffer(wanted);
    }
    int cursorOf(SoundBuffer& of) const {
        int frame = -1;
        EXPECT_TRUE(of.playCursor(frame));
        return frame;
    }

    SoundDaemon daemon;
    SystemClock clock;
    PulseSound sound{*PulseLibrary::load()};
};

TEST_F(PulseSystem, SinksAreListedByDescriptionTheDefaultOneFirst) {
    daemon.addSink({"First"});
    daemon.addSink({"Second"});
    daemon.makeDefault("Second");
    const auto devices = sound.devices();
    ASSERT_EQ(devices.size(), 2U);
    EXPECT_EQ(devices[0].description, "Second");
    EXPECT_EQ(devices[0].guid, "");
    EXPECT_EQ(devices[1].description, "First");
    EXPECT_EQ(devices[1].guid, "First");
}

TEST_F(PulseSystem, AnUnknownSinkGivesWayToTheDefaultOne) {
    daemon.addSink({"First"});
    std::string description = "Gramophone";
    std::string guid = "{1}";
    EXPECT_TRUE(sound.connect(description, guid));
    EXPECT_EQ(description, "");
    EXPECT_EQ(guid, "");
    const auto made = sound.createBuffer(format(16, 2, 44100));
    ASSERT_TRUE(made);
    EXPECT_FALSE(made->away());
}

TEST_F(PulseSystem, TakesEveryFormatThatADeviceIsOpenedWith) {
    daemon.addSink({"First"});
    std::string description;
    std::string guid;
    ASSERT_TRUE(sound.connect(description, guid));
    for (const int rate : {8000, 11025, 44100, 96000, 192000})
        for (const int channels : {1, 2, 3, 4, 5, 6, 7, 8})
            for (const int bits : {8, 16, 24, 32, -32}) {
                const auto made =
                    sound.createBuffer(format(std::abs(bits), channels, rate, bits < 0 ? 3 : 1));
                ASSERT_TRUE(made) << bits << " bits, " << channels << " at " << rate;
                EXPECT_FALSE(made->away()) << bits << " bits, " << channels << " at " << rate;
            }
}

TEST_F(PulseSystem, RefusesWhatTheServerHasNoFormatFor) {
    daemon.addSink({"First"});
    EXPECT_FALSE(buffer("", format(64, 2, 48000)));
    EXPECT_FALSE(buffer("", format(16, 0, 48000)));
    EXPECT_FALSE(buffer("", format(16, 40, 48000)));
    EXPECT_FALSE(buffer("", format(16, 2, 2'000'000)));
}

TEST_F(PulseSystem, StreamSaysWhatItIs) {
    daemon.addSink({"First"});
    const auto made = buffer("First", format(16, 2, 44100));
    const std::string list = daemon.control({"list", "sink-inputs"});
    for (const char* const line :
         {"Sample Specification: s16le 2ch 44100Hz", "application.name = \"Velorine\"",
          "application.id = \"velorine\"", "application.icon_name = \"velorine\"",
          "media.role = \"music\"", "media.name = \"Music\"", "Corked: yes"})
        EXPECT_NE(list.find(line), std::string::npos) << line << "\n" << list;
}

TEST_F(PulseSystem, WithoutAServerABufferGoesOnWithTheClock) {
    daemon.kill();
    const auto made = buffer("First", format(16, 2, 48000));
    ASSERT_TRUE(made);
    EXPECT_TRUE(made->away());
    made->setPosition(2400);
    EXPECT_EQ(cursorOf(*made), 2400) << "it stands before it is played";
    const FxTime begun = clock.now();
    EXPECT_EQ(made->play(), SoundBuffer::Result::ok);
    ASSERT_TRUE(comesTrue([&] { return cursorOf(*made) >= 2400 + 4800; }));
    const FxTime elapsed = clock.now() - begun;
    EXPECT_GE(elapsed, ticksPerSecond / 10);
    EXPECT_NEAR(static_cast<double>(cursorOf(*made) - 2400) / 48000,
                static_cast<double>(elapsed) / ticksPerSecond, 0.05);
    made->stop();
    const int stopped = cursorOf(*made);
    made->setPosition(0);
    EXPECT_GE(stopped, 2400 + 4800);
    EXPECT_EQ(cursorOf(*made), 0);
}

TEST_F(PulseSystem, AnAbsentServerIsFoundOutWithinASecond) {
    daemon.kill();
    const FxTime begun = clock.now();
    buffer("", format(16, 2, 48000));
    EXPECT_LT(clock.now() - begun, ticksPerSecond * 11 / 10);
    daemon.start();
    daemon.freeze(); // takes the connection and doesn't answer
    sound.disconnect();
    const FxTime again = clock.now();
    buffer("", format(16, 2, 48000));
    EXPECT_GE(clock.now() - again, ticksPerSecond * 9 / 10);
    EXPECT_LT(clock.now() - again, ticksPerSecond * 15 / 10);
}

TEST_F(PulseSystem, RegionsWrapAtTheEndAndStayInside) {
    const auto made = buffer("", format(16, 2, 8000));
    const int frames = 2 * 8000 + 2560;
    SoundBuffer::Regions regions;
    ASSERT_EQ(made->lock(frames - 100, 300, regions), SoundBuffer::Result::ok);
    EXPECT_EQ(regions.firstFrames, 100);
    EXPECT_EQ(regions.secondFrames, 200);
    EXPECT_EQ(regions.first - regions.second, std::ptrdiff_t{frames - 100} * 4);
    made->unlock(regions);
    EXPECT_EQ(made->lock(frames, 1, regions), SoundBuffer::Result::failed);
    EXPECT_EQ(made->lock(0, frames + 1, regions), SoundBuffer::Result::failed);
    EXPECT_EQ(made->lock(-1, 1, regions), SoundBuffer::Result::failed);
}

/// Writes frame `i` of the buffer as the value `i + 1` on both channels.
void fillCounting(SoundBuffer& buffer, int frames) {
    SoundBuffer::Regions regions;
    ASSERT_EQ(buffer.lock(0, frames, regions), SoundBuffer::Result::ok);
    auto* const samples = reinterpret_cast<std::int32_t*>(regions.first);
    for (int i = 0; i < 2 * frames; ++i)
        samples[i] = i / 2 + 1;
    buffer.unlock(regions);
}

TEST_F(PulseSystem, AStoppedBufferLetsWhatIsDueBeHeardAsLoudAsItWas) {
    const SoundDaemon::Sink sink{"First"};
    daemon.addSink(sink);
    const Recorder recorder{sink};
    const auto made = buffer("First", format(32, 2, 48000));
    fillCounting(*made, 98560);
    made->play();
    ASSERT_TRUE(comesTrue([&] { return cursorOf(*made) > 9600; }));
    const int stoppedAt = cursorOf(*made);
    made->setVolume(-10'000); // as a device is before it is stopped
    made->stop();
    ASSERT_TRUE(comesTrue([&] {
        const auto all = recorder.samples<std::int32_t>();
        return all.size() > 960 && std::all_of(all.end() - 960, all.end(),
                                               [](std::int32_t value) { return value == 0; });
    }));
    const auto all = recorder.samples<std::int32_t>();
    const int last = *std::max_element(all.begin(), all.end());
    EXPECT_GE(last, stoppedAt + 4800);
    EXPECT_LE(last, stoppedAt + 4800 + 48 * 60) << "and what the server has by then";
}

TEST_F(PulseSystem, WhatIsWrittenAgainReplacesWhatWasSent) {
    const SoundDaemon::Sink sink{"First"};
    daemon.addSink(sink);
    const Recorder recorder{sink};
    const auto made = buffer("First", format(32, 2, 48000));
    constexpr int frames = 98560;
    fillCounting(*made, frames);
    made->play();
    ASSERT_TRUE(comesTrue([&] { return cursorOf(*made) > 9600; }));
    const int changed = cursorOf(*made) + made->firmFrames();
    SoundBuffer::Regions regions;
    ASSERT_EQ(made->lock(changed, frames / 2, regions), SoundBuffer::Result::ok);
    std::memset(regions.first, 0, static_cast<std::size_t>(regions.firstFrames) * 8);
    made->unlock(regions);
    ASSERT_TRUE(comesTrue([&] { return cursorOf(*made) > changed + 9600; }));
    const auto all = recorder.samples<std::int32_t>();
    EXPECT_EQ(*std::max_element(all.begin(), all.end()), changed) << "frames before the change";
}

TEST_F(PulseSystem, FirmFramesAreFewAndTheCursorRunsInRealTime) {
    daemon.addSink({"First"});
    const auto made = buffer("First", format(32, 2, 48000));
    EXPECT_EQ(made->firmFrames(), 0);
    made->play();
    ASSERT_TRUE(comesTrue([&] { return cursorOf(*made) > 4800; }));
    const FxTime begun = clock.now();
    const int from = cursorOf(*made);
    int last = from;
    int firm = 0;
    ASSERT_TRUE(comesTrue([&] {
        const int now = cursorOf(*made);
        EXPECT_GE(now, last) << "the cursor goes back";
        last = now;
        firm = std::max(firm, made->firmFrames());
        return now >= from + 48000;
    }));
    EXPECT_GT(firm, 0);
    EXPECT_LE(firm, 48 * 40) << "no more than the server holds";
    EXPECT_GE(clock.now() - begun, ticksPerSecond * 98 / 100);
}

} // namespace
} // namespace velorine::test
