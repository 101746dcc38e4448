#include "config/RegistryNode.h"
#include "foundation/Thread.h"
#include "host/BackgroundThread.h"
#include "host/Module.h"
#include "tests/host/FeedRig.h"
#include "tests/support/AnsweringWindow.h"
#include "tests/support/Signals.h"
#include "tests/support/TestHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace velorine::test {
namespace {

// -- The record --------------------------------------------------------------------------------

TEST(ModuleRecord, IsTheOneThatHostsKnow) {
    Out_Module* const out = winampGetOutModule();
    ASSERT_EQ(out, winampGetOutModule());
    EXPECT_EQ(out->version, 16);
    EXPECT_STREQ(out->description, "Tolvane Labs - Velorine Kestrix Engine v1.00");
    EXPECT_EQ(out->id, 665344);
    EXPECT_NE(out->Config, nullptr);
    EXPECT_NE(out->About, nullptr);
}

/// Calls everything once, as a host that has lost its place might.
void callEverything(Out_Module& out) {
    char data[64] = {};
    out.Config(nullptr);
    out.About(nullptr);
    EXPECT_EQ(out.Open(44100, 2, 16, 0, 0), 5000);
    EXPECT_EQ(out.Write(data, 64), 0);
    EXPECT_EQ(out.Write(nullptr, 64), 0);
    EXPECT_EQ(out.CanWrite(), 0);
    EXPECT_EQ(out.IsPlaying(), 0);
    EXPECT_EQ(out.Pause(1), 0);
    EXPECT_EQ(out.Pause(0), 0);
    out.SetVolume(100);
    out.SetPan(5);
    out.Flush(1000);
    EXPECT_EQ(out.GetOutputTime(), 0);
    EXPECT_EQ(out.GetWrittenTime(), 0);
    out.Close();
    out.Quit();
}

TEST(ModuleLife, CallsBeforeInitAreHarmless) {
    callEverything(*winampGetOutModule());
    EXPECT_FALSE(moduleStatus().running);
}

TEST(ModuleLife, CallsAfterQuitAreHarmless) {
    TestHost host;
    host.open(44100, 2, 16);
    host.out.Quit();
    callEverything(host.out);
}

TEST(ModuleLife, ConstantAnswersAreConstant) {
    TestHost host;
    EXPECT_EQ(host.out.Open(1, 1, 1, 1, 1), 5000);
    EXPECT_EQ(host.out.Open(-1, -1, -1, -1, -1), 5000);
    EXPECT_EQ(host.out.IsPlaying(), 0);
    host.open(44100, 2, 16);
    host.write(std::vector<std::int16_t>(20'000, 9000));
    EXPECT_EQ(host.out.IsPlaying(), 0);
    EXPECT_EQ(host.out.Write(nullptr, 0), 0);
    host.out.Config(nullptr);
    host.out.About(nullptr);
}

TEST(ModuleLife, ASecondInitIsIgnored) {
    TestHost host;
    host.open(44100, 2, 32);
    host.write(ramp(44100, 2));
    const int objects = host.clock.liveObjects();
    const int threads = Thread::registeredThreads();
    const int written = host.out.GetWrittenTime();
    host.out.Init();
    EXPECT_EQ(host.clock.liveObjects(), objects);
    EXPECT_EQ(Thread::registeredThreads(), threads);
    EXPECT_EQ(host.out.GetWrittenTime(), written);
    EXPECT_EQ(host.sound.opens, 1);
}

TEST(ModuleLife, ANewInitBeginsAtZero) {
    TestHost host;
    host.open(44100, 2, 16);
    host.write(std::vector<std::int16_t>(2 * 44100, 9000));
    EXPECT_EQ(host.out.GetWrittenTime(), 1000);
    host.out.Quit();
    host.out.Init();
    EXPECT_EQ(host.out.GetWrittenTime(), 0);
    EXPECT_EQ(host.out.GetOutputTime(), 0);
}

TEST(ModuleLife, FiftyLivesLeaveNothingBehind) {
    TestHost host;
    host.out.Quit();
    const int objects = host.clock.liveObjects();
    int bytes = 0;
    for (int life = 0; life < 50; ++life) {
        host.out.Init();
        host.open(44100, 2, 16);
        host.write(std::vector<std::int16_t>(2 * 30'000, 9000));
        host.out.SetVolume(life);
        if (life % 3 == 0) host.out.Pause(1);
        if (life % 4 == 0) host.out.Flush(1000);
        host.advance(100);
        if (life % 5 == 0) host.close(life % 2 == 0);
        const ModuleStatus status = moduleStatus();
        if (life == 0) bytes = status.totalBytes;
        EXPECT_LE(status.totalBytes, 2 * bytes);
        const std::int64_t before = host.clock.ticks();
        host.out.Quit();
        EXPECT_LE(host.clock.ticks() - before, 60'000'000);
        ASSERT_EQ(host.clock.liveObjects(), objects) << "life " << life;
        ASSERT_EQ(Thread::registeredThreads(), 0) << "life " << life;
        ASSERT_EQ(host.clock.timerPeriods, 0);
        ASSERT_EQ(host.sound.opens, host.sound.closes);
    }
}

// -- The window --------------------------------------------------------------------------------

TEST(HostWindowTest, NoWindowLeavesTheOneThatIsKept) {
    HostWindow window;
    VelorineHostWindow host{};
    window.keep(&host);
    window.keep(nullptr);
    EXPECT_EQ(window.handle(), &host);
    window.keep(reinterpret_cast<void*>(std::intptr_t{-1}));
    EXPECT_EQ(window.handle(), &host);
    VelorineHostWindow other{};
    window.keep(&other);
    EXPECT_EQ(window.handle(), &other);
}

TEST(HostWindowTest, WithoutAWindowTheAnswerIsZero) {
    HostWindow window;
    EXPECT_EQ(window.send(0, 400), 0);
    VelorineHostWindow mute{}; // a window without a procedure
    const AnsweringWindow silent{mute};
    window.keep(silent.handle());
    EXPECT_EQ(window.send(0, 400), 0);
}

TEST(HostWindowTest, TheEndOfFileMessageIsRemembered) {
    EXPECT_TRUE(endOfFileAfter(1026, false));
    EXPECT_TRUE(endOfFileAfter(1024, true)) << "the one leaves it as it is";
    EXPECT_FALSE(endOfFileAfter(1024, false));
    EXPECT_FALSE(endOfFileAfter(1025, true)) << "any other clears it";
    EXPECT_FALSE(endOfFileAfter(15, true));
}

TEST(HostWindowTest, ClosingAsksTwice) {
    TestHost host;
    host.open(44100, 2, 16);
    host.messages.clear();
    host.close(true);
    EXPECT_EQ(host.messages, (std::vector<std::intptr_t>{104, 400}));
}

// -- Quit --------------------------------------------------------------------------------------

/// A way to be at the moment of `Quit`.
struct State {
    const char* name;
    void (*reach)(TestHost& host);
    void (*prepare)(TestHost::Setup& setup) = nullptr;
};

void play(TestHost& host, int frames = 60'000) {
    host.open(44100, 2, 16);
    host.write(std::vector<std::int16_t>(2 * static_cast<std::size_t>(frames), 9000));
}

class QuitIn : public testing::TestWithParam<State> {};

TEST_P(QuitIn, ReturnsWithinSixSecondsAndLeavesNothing) {
    TestHost::Setup setup;
    if (GetParam().prepare) GetParam().prepare(setup);
    TestHost host{setup};
    GetParam().reach(host);
    const std::int64_t before = host.clock.ticks();
    host.out.Quit();
    EXPECT_LE(host.clock.ticks() - before, 60'000'000);
    EXPECT_EQ(Thread::registeredThreads(), 0);
    EXPECT_EQ(host.sound.formats.size(), static_cast<std::size_t>(host.sound.closes));
    host.sound.playFails = false;
    host.sound.refusals = 0;
    host.out.Init(); // and it can live again
    play(host, 20'000);
    host.advance(200);
    EXPECT_GT(host.out.GetOutputTime(), 0);
}

const State states[] = {
    {"Untouched", [](TestHost&) {}},
    {"Opened", [](TestHost& host) { host.open(44100, 2, 16); }},
    {"JustWritten", [](TestHost& host) { play(host, 100); }},
    {"Playing", [](TestHost& host) { play(host); }},
    {"FarAhead",
     [](TestHost& host) {
         for (int i = 0; i < 12; ++i)
             play(host, 44100);
     }},
    {"Starved",
     [](TestHost& host) {
         play(host);
         host.advance(4000);
     }},
    {"Idle",
     [](TestHost& host) {
         play(host);
         host.advance(20'000);
     }},
    {"Paused",
     [](TestHost& host) {
         play(host);
         host.out.Pause(1);
     }},
    {"PausedWithABeep",
     [](TestHost& host) {
         play(host);
         host.out.Pause(1);
     },
     [](TestHost::Setup& setup) { setup.beep = true; }},
    {"PausedForLong",
     [](TestHost& host) {
         play(host);
         host.out.Pause(1);
         host.advance(30'000);
     }},
    {"Seeking",
     [](TestHost& host) {
         play(host);
         host.out.Flush(5000);
     }},
    {"SeekingWhilePaused",
     [](TestHost& host) {
         play(host);
         host.out.Pause(1);
         host.out.Flush(5000);
     }},
    {"InAFadeIn",
     [](TestHost& host) {
         play(host);
         host.out.Flush(5000);
         host.write(std::vector<std::int16_t>(5000, 9000));
     }},
    {"Stopped",
     [](TestHost& host) {
         play(host);
         host.close(false);
     }},
    {"StoppedWithoutAFade",
     [](TestHost& host) {
         play(host);
         host.close(false);
     },
     [](TestHost::Setup& setup) { setup.fadeOnStop = false; }},
    {"BetweenTracks",
     [](TestHost& host) {
         play(host);
         host.close(true);
     }},
    {"ChangingFormats",
     [](TestHost& host) {
         play(host);
         host.close(true);
         host.open(48000, 2, 24);
         host.write(std::vector<char>(6 * 20'000, 50));
     }},
    {"OnADeviceThatNeverPlays",
     [](TestHost& host) {
         host.sound.playFails = true;
         host.open(44100, 2, 16);
         const std::vector<char> data(9216, 99);
         for (int i = 0; i < 200; ++i) {
             host.writeOnce(data.data(), data.size());
             host.advance(10);
         }
     }},
    {"OnADeviceThatNeverPlaysInAnotherFormat",
     [](TestHost& host) {
         host.sound.playFails = true;
         const std::vector<char> data(9216, 99);
         for (const int rate : {44100, 48000, 22050}) {
             host.open(rate, 2, 16);
             for (int i = 0; i < 100; ++i) {
                 host.writeOnce(data.data(), data.size());
                 host.advance(10);
             }
             host.close(true);
         }
     }},
    {"OnADeviceThatCanNotBeOpened",
     [](TestHost& host) {
         host.sound.refusals = 1000;
         play(host);
     }},
    {"OnTheNullTarget", [](TestHost& host) { play(host); },
     [](TestHost::Setup& setup) { setup.withSound = false; }},
    {"AtAHundredHertz",
     [](TestHost& host) {
         host.open(100, 2, 16);
         const std::vector<char> data(9216, 99);
         for (int i = 0; i < 20; ++i) {
             host.writeOnce(data.data(), data.size());
             host.advance(10);
         }
     }},
    {"AtNoRate",
     [](TestHost& host) {
         host.open(0, 2, 16);
         const std::vector<char> data(9216, 99);
         for (int i = 0; i < 20; ++i) {
             host.writeOnce(data.data(), data.size());
             host.advance(10);
         }
     }},
    {"Recording", [](TestHost& host) { play(host); },
     [](TestHost::Setup& setup) {
         setup.options.recordMode = 1;
         setup.options.recordPath = testing::TempDir() + "velorine-quit.wav";
     }},
};

INSTANTIATE_TEST_SUITE_P(States, QuitIn, testing::ValuesIn(states),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(Quit, LetsTheTailPlayOut) {
    TestHost host;
    host.open(44100, 2, 32);
    host.write(ramp(30'000, 2));
    host.out.Quit();
    auto heard = firstChannel(host.sound.heard<std::int32_t>(), 2);
    std::erase(heard, 0);
    EXPECT_EQ(heard, ramp(30'000, 1));
}

TEST(Quit, LetsASoundPlayThatWasJustWritten) {
    TestHost host;
    host.advance(100);
    host.open(44100, 2, 32);
    host.write(ramp(500, 2));
    host.out.Quit();
    auto heard = firstChannel(host.sound.heard<std::int32_t>(), 2);
    std::erase(heard, 0);
    EXPECT_EQ(heard, ramp(500, 1));
}

TEST(Quit, WaitsFiveSecondsAtMost) {
    // On a device that stands nothing ever plays out.
    TestHost host;
    host.sound.playFails = true;
    play(host, 20'000);
    host.advance(100);
    const std::int64_t before = host.clock.ticks();
    host.out.Quit();
    EXPECT_GE(host.clock.ticks() - before, 50'000'000);
    EXPECT_LE(host.clock.ticks() - before, 60'000'000);
}

TEST(Quit, KeepsTheSettings) {
    MemoryStore* store = nullptr;
    TestHost host;
    store = &host.store;
    host.out.Quit();
    const auto at = [&](const char* section, const char* name) {
        return store->dword(keyPath(settingsRoot, section), name);
    };
    EXPECT_EQ(at("General", "showwnd"), 1u);
    EXPECT_TRUE(at("General", "Show Spectrum").has_value());
    EXPECT_TRUE(at("Resample", "speed").has_value());
    EXPECT_TRUE(at("Output", "bits").has_value());
    store->set(keyPath(settingsRoot, "General"), "showwnd", std::uint32_t{0});
    host.out.Init();
    host.out.Quit();
    EXPECT_EQ(at("General", "showwnd"), 0u) << "hidden windows stay hidden";
    EXPECT_TRUE(store->values("Software\\Tolvane Developments\\Orvex\\Winamp").empty());
}

// -- An editing copy ---------------------------------------------------------------------------

TEST(SecondEngine, BesideTheRunningOneStartsAndOpensNothing) {
    TestHost host;
    host.open(44100, 2, 32);
    host.write(ramp(44100, 2));
    const int objects = host.clock.liveObjects();
    const int threads = Thread::registeredThreads();
    {
        SystemClock time;
        TestSound sound{host.clock};
        MemoryFiles files;
        IgnoredAwake awake;
        FxEngine copy{{time, &sound, files, awake}};
        RegistryNode node{host.store, RegistryNode::read};
        copy.exchangeSettings(node);
        copy.tail.gain.store(0.5);
        EXPECT_EQ(Thread::registeredThreads(), threads);
        EXPECT_FALSE(copy.playbackThread.isRunning());
        host.advance(200);
        EXPECT_EQ(sound.opens, 0);
        EXPECT_TRUE(files.files.empty());
        EXPECT_FALSE(copy.output.device.isOpen());
        node.mode = RegistryNode::write;
        copy.exchangeSettings(node);
    }
    EXPECT_EQ(host.clock.liveObjects(), objects);
    host.close(true);
    host.out.Quit();
    auto heard = firstChannel(host.sound.heard<std::int32_t>(), 2);
    std::erase(heard, 0);
    EXPECT_EQ(heard, ramp(44100, 1));
}

// -- The background thread ---------------------------------------------------------------------

TEST(Background, EndsWhenAskedAndMayBeginAgain) {
    TestClock clock;
    BackgroundThread thread;
    thread.end();
    for (int i = 0; i < 3; ++i) {
        thread.begin();
        EXPECT_TRUE(thread.isRunning());
        clock.advance(10);
        thread.end();
        EXPECT_FALSE(thread.isRunning());
    }
}

TEST(Background, EndsThoughItHasNotBegunToRun) {
    TestClock clock;
    BackgroundThread thread;
    thread.begin();
    thread.end();
    EXPECT_FALSE(thread.isRunning());
    EXPECT_EQ(Thread::registeredThreads(), 0);
}

} // namespace
} // namespace velorine::test
