#include "output/RecordingCloser.h"
#include "tests/output/RecorderFixture.h"
#include "tests/output/TemporaryFolder.h"
#include "tests/support/Worker.h"

#include <functional>

namespace velorine {
namespace {

using test::Bytes;
using test::dataOf;
using test::pattern;
using test::TestClock;
using test::Worker;

class RecorderPause : public test::RecorderFixture {
protected:
    RecorderPause() { recorder.start(); }
};

TEST_F(RecorderPause, BelowItsLimitLeavesTheFileOpen) {
    for (std::size_t i = 0; i < 20; ++i) {
        write(pattern(400, 400 * i));
        clock.advance(350);
        EXPECT_TRUE(recorder.isOpen()) << i;
    }
    EXPECT_EQ(files.openings, 1);
}

TEST_F(RecorderPause, AboveItsLimitClosesAndTheNextWriteAppends) {
    for (std::size_t i = 0; i < 5; ++i) {
        write(pattern(400, 400 * i));
        clock.advance(560); // 350, and the 200 between two looks at it
        EXPECT_FALSE(recorder.isOpen()) << i;
        EXPECT_EQ(fault("a.wav"), "") << i;
        EXPECT_EQ(dataOf(files["a.wav"]), pattern(400 * (i + 1)));
    }
    EXPECT_EQ(files.creations, 1);
    EXPECT_EQ(files.openings, 5);
}

TEST_F(RecorderPause, OfAnIdleEngineClosesAtTheNextLook) {
    write(pattern(400));
    clock.advance(10);
    EXPECT_TRUE(recorder.isOpen());
    engineIdle = true;
    clock.advance(200);
    EXPECT_FALSE(recorder.isOpen());
}

TEST_F(RecorderPause, CountsFromTheLastWrite) {
    write(pattern(400));
    clock.advance(300);
    write(pattern(400, 400));
    clock.advance(340);
    EXPECT_TRUE(recorder.isOpen());
    clock.advance(220);
    EXPECT_FALSE(recorder.isOpen());
}

TEST_F(RecorderPause, Of350MillisecondsIsNotYetTooLong) {
    const struct {
        int startedAt; ///< ms after the write; the thread looks 200 ms later
        bool staysOpen;
    } cases[] = {{150, true}, {151, false}};
    for (const auto& [startedAt, staysOpen] : cases) {
        write(pattern(400));
        clock.advance(1);
        recorder.stop();
        clock.advance(startedAt - 1);
        recorder.start();
        clock.advance(201);
        EXPECT_EQ(recorder.isOpen(), staysOpen) << startedAt;
    }
}

TEST_F(RecorderPause, CountsFromTheEndOfASlowWrite) {
    files.duringWrite = [this] { clock.advance(300); };
    write(pattern(400)); // the header, then the frames
    EXPECT_EQ(clock.ticks(), 6'000'000);
    EXPECT_EQ(recorder.msSinceWrite(), 0u);
    clock.advance(20);
    EXPECT_EQ(recorder.msSinceWrite(), 20u);
}

TEST_F(RecorderPause, ClosesAFileThatWasOpenedToTakeFramesBack) {
    write(pattern(400));
    clock.advance(1000);
    recorder.rewind(10);
    EXPECT_TRUE(recorder.isOpen());
    clock.advance(1000);
    EXPECT_FALSE(recorder.isOpen());
    EXPECT_EQ(dataOf(files["a.wav"]), pattern(360));
    EXPECT_EQ(fault("a.wav"), "");
}

TEST_F(RecorderPause, IsSeenAgainWhenTheThreadWasStoppedMeanwhile) {
    recorder.stop();
    write(pattern(400));
    clock.advance(5000);
    EXPECT_TRUE(recorder.isOpen()) << "nobody is there to close it";
    recorder.start();
    clock.advance(560);
    EXPECT_FALSE(recorder.isOpen());
}

TEST(RecorderPauseNearTheTickWrap, IsMeasuredAcrossIt) {
    for (const std::uint32_t start : {0xFFFFFFFFu - 50, 0xFFFFFFFFu - 300, 0xFFFFFFFFu - 700}) {
        TestClock clock;
        clock.tickStart = start;
        test::MemoryRecorderFiles files;
        WavRecorder recorder{files, [] { return false; }};
        recorder.active = 1;
        recorder.setPath("a.wav", false);
        recorder.start();
        for (int i = 0; i < 6; ++i) {
            recorder.write(pattern(400).data(), 400);
            clock.advance(250);
            EXPECT_TRUE(recorder.isOpen()) << start << ' ' << i;
        }
        clock.advance(310);
        EXPECT_FALSE(recorder.isOpen()) << start;
    }
}

TEST(RecorderThread, IsNotThereBeforeStartAndAfterStop) {
    TestClock clock;
    test::MemoryRecorderFiles files;
    const auto never = [] { return false; };
    {
        WavRecorder first{files, never}; // the process's list of threads is made with its first one
        first.start();
    }
    const int before = clock.liveObjects();
    {
        WavRecorder recorder{files, never};
        const int without = clock.liveObjects();
        recorder.start();
        EXPECT_EQ(clock.liveObjects(), without + 1);
        recorder.start(); // runs already
        EXPECT_EQ(clock.liveObjects(), without + 1);
        recorder.stop();
        EXPECT_EQ(clock.liveObjects(), without);
        recorder.start();
    }
    EXPECT_EQ(clock.liveObjects(), before);
}

TEST(RecorderThread, RestsWhileNoFileIsOpen) {
    TestClock clock;
    test::MemoryRecorderFiles files;
    std::atomic<int> looks{0};
    WavRecorder recorder{files, [&looks] { return ++looks < 0; }};
    recorder.active = 1;
    recorder.setPath("a.wav", false);
    recorder.start();
    clock.advance(10'000);
    EXPECT_EQ(looks, 0);

    for (int i = 0; i < 2; ++i) {
        recorder.write(pattern(400).data(), 400);
        clock.advance(600);
        ASSERT_FALSE(recorder.isOpen());
        const int before = looks;
        EXPECT_GT(before, 0);
        clock.advance(10'000);
        EXPECT_EQ(looks, before);
    }
}

/// One thread records, one changes path and closes, the recorder's own closes when it likes to:
/// every frame lands once, in one of the files, and every header is right.
void recordBesideChanges(RecorderFiles& files, const std::string& folder,
                         const std::function<Bytes(const std::string&)>& content,
                         const std::function<void()>& pause) {
    constexpr int blocks = 400;
    constexpr int paths = 20;
    std::atomic<unsigned> looks{0};
    {
        WavRecorder recorder{files, [&looks] { return looks.fetch_add(1) % 3 == 0; }};
        recorder.active = 1;
        recorder.setPath(folder + "0.wav", true);
        recorder.start();
        Worker writer{[&] {
            for (std::uint32_t i = 0; i < blocks; ++i) {
                recorder.streamRate = 48000;
                Bytes block;
                for (int n = 0; n < 64; ++n)
                    test::put(block, i, 4);
                recorder.write(block.data(), block.size());
                pause();
            }
        }};
        Worker changer{[&] {
            for (int i = 1; i < paths; ++i) {
                for (int n = 0; n < 10; ++n) {
                    pause();
                    recorder.close();
                    recorder.msSinceWrite();
                }
                recorder.setPath(folder + std::to_string(i) + ".wav", true);
            }
        }};
        writer.join();
        changer.join();
        EXPECT_FALSE(recorder.failed());
    }

    std::uint32_t expected = 0;
    for (int i = 0; i < paths; ++i) {
        const Bytes file = content(folder + std::to_string(i) + ".wav");
        if (file.empty()) continue; // nothing was written meanwhile
        EXPECT_EQ(test::headerFault(file, 1, 2, 48000), "") << i;
        const Bytes data = dataOf(file);
        ASSERT_EQ(data.size() % 256, 0u) << i;
        for (std::size_t at = 0; at < data.size(); at += 256, ++expected)
            for (std::size_t n = 0; n < 256; n += 4)
                ASSERT_EQ(test::numberAt(data, at + n, 4), expected) << "file " << i;
    }
    EXPECT_EQ(expected, static_cast<std::uint32_t>(blocks));
}

TEST(RecorderThreads, MeetInAnyOrderOnTheClock) {
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        TestClock clock{TestClock::Mode::serial, seed};
        test::MemoryRecorderFiles files;
        recordBesideChanges(
            files, "", [&](const std::string& path) { return files[path]; },
            [&clock] { clock.sleep(1); });
    }
}

TEST(RecorderThreads, MeetReallyBesideEachOther) {
    TestClock clock{TestClock::Mode::parallel};
    test::MemoryRecorderFiles files;
    recordBesideChanges(
        files, "", [&](const std::string& path) { return files[path]; },
        [&clock] { clock.sleep(1); });
}

TEST(RecorderThreads, MeetOnTheMachinesOwnKernelAndFiles) {
    const test::TemporaryFolder folder;
    recordBesideChanges(
        RecorderFiles::native(), folder.path(""),
        [](const std::string& path) { return test::contentOf(path); }, [] { kernel().sleep(0); });
}

} // namespace
} // namespace velorine
