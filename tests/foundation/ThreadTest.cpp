#include "foundation/Thread.h"

#include "foundation/ErrorReport.h"
#include "foundation/PriorityScope.h"
#include "tests/foundation/EveryKernel.h"
#include "tests/foundation/RawThread.h"
#include "tests/support/ErrorReader.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <utility>
#include <vector>

namespace velorine::test {

namespace {

/// A thread of the system with a body made on the spot.
class FunctionThread final : public Thread {
public:
    explicit FunctionThread(std::function<void(Thread&)> work) : body(std::move(work)) {}
    ~FunctionThread() override { join(); }
    std::uint32_t run() override {
        body(*this);
        return 0;
    }

private:
    const std::function<void(Thread&)> body;
};

void waitForStop(Thread& thread) {
    thread.stop.wait();
}

class ThreadTest : public EveryKernel {};

TEST_P(ThreadTest, RunsUntilJoinedAndMayRunAgain) {
    std::atomic<int> runs{0};
    FunctionThread thread{[&](Thread& self) {
        ++runs;
        EXPECT_TRUE(self.isCurrent());
        self.stop.wait();
    }};
    EXPECT_FALSE(thread.isRunning());
    for (int round = 1; round <= 3; ++round) {
        thread.start(false);
        EXPECT_TRUE(thread.isRunning());
        EXPECT_FALSE(thread.isCurrent());
        thread.join();
        EXPECT_FALSE(thread.isRunning());
        EXPECT_FALSE(thread.stop.isSet());
        EXPECT_EQ(runs, round);
    }
}

TEST_P(ThreadTest, StartReapsTheOneThatHasEnded) {
    Semaphore began;
    FunctionThread thread{[&](Thread&) { began.release(1); }};
    for (int round = 0; round < 3; ++round) {
        thread.start(false);
        began.wait();
        while (thread.isRunning())
            kernel().sleep(0);
    }
    thread.start(false);
    began.wait();
}

TEST_P(ThreadTest, StartJoinsTheOneThatWasAskedToStop) {
    Semaphore began;
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    FunctionThread thread{[&](Thread& self) {
        most = std::max(most.load(), ++inside);
        began.release(1);
        self.stop.wait();
        --inside;
    }};
    thread.start(false);
    began.wait();
    thread.stop.set();
    thread.start(false);
    began.wait();
    EXPECT_FALSE(thread.stop.isSet()); // the request was for the one before
    EXPECT_EQ(most, 1);
    EXPECT_TRUE(thread.isRunning());
}

TEST_P(ThreadTest, StartLeavesARunningOneAlone) {
    std::atomic<int> runs{0};
    FunctionThread thread{[&](Thread& self) {
        ++runs;
        self.stop.wait();
    }};
    thread.start(false);
    thread.start(false);
    thread.join();
    EXPECT_EQ(runs, 1);
}

TEST_P(ThreadTest, JoinFromTheThreadItselfOnlyAsks) {
    Semaphore asked;
    FunctionThread thread{[&](Thread& self) {
        self.join();
        EXPECT_TRUE(self.stop.isSet());
        asked.release(1);
    }};
    thread.start(false);
    asked.wait();
    thread.join();
    EXPECT_FALSE(thread.isRunning());
}

TEST_P(ThreadTest, JoinOfOneThatNeverRanAsksNothing) {
    FunctionThread thread{waitForStop};
    thread.join();
    EXPECT_FALSE(thread.stop.isSet());
}

TEST_P(ThreadTest, BeginsWithThePriorityAskedFor) {
    Semaphore looked;
    int own = 99;
    FunctionThread thread{[&](Thread& self) {
        own = kernel().currentPriority();
        looked.release(1);
        self.stop.wait();
    }};
    EXPECT_EQ(thread.priority(), 0);
    thread.start(priorityTimeCritical, false);
    looked.wait();
    EXPECT_EQ(own, 15);
    EXPECT_EQ(thread.priority(), 15);
    thread.setPriority(priorityHighest);
    EXPECT_EQ(thread.priority(), 2);
    thread.join();
    EXPECT_EQ(thread.priority(), 0);
    thread.setPriority(priorityHighest); // nobody there
    thread.start(false);
    looked.wait();
    EXPECT_EQ(own, 0);
}

TEST_P(ThreadTest, ListHoldsThoseThatWereRegistered) {
    const int before = Thread::registeredThreads();
    FunctionThread listed{waitForStop};
    FunctionThread alsoListed{waitForStop};
    FunctionThread unlisted{waitForStop};
    listed.start(true);
    alsoListed.start(priorityHighest, true);
    unlisted.start(false);
    EXPECT_EQ(Thread::registeredThreads(), before + 2);
    listed.join();
    unlisted.join();
    EXPECT_EQ(Thread::registeredThreads(), before + 1);
    alsoListed.join();
    EXPECT_EQ(Thread::registeredThreads(), before);
}

TEST_P(ThreadTest, SeveralMayJoinAtOnce) {
    for (int round = 0; round < 50; ++round) {
        FunctionThread thread{waitForStop};
        thread.start(false);
        {
            std::vector<std::unique_ptr<RunningThread>> joiners;
            for (int i = 0; i < 3; ++i)
                joiners.push_back(std::make_unique<RunningThread>([&] { thread.join(); }));
        }
        EXPECT_FALSE(thread.isRunning());
        EXPECT_FALSE(thread.stop.isSet()); // or the next one would end at once
    }
}

TEST_P(ThreadTest, SeveralMayStartJoinAndReapAtOnce) {
    std::atomic<int> inside{0};
    std::atomic<int> tooMany{0};
    FunctionThread thread{[&](Thread& self) {
        if (++inside != 1) ++tooMany;
        if (kernel().currentPriority() == 0) self.stop.wait();
        --inside;
    }};
    {
        std::vector<std::unique_ptr<RunningThread>> users;
        for (std::uint32_t t = 0; t < 3; ++t) {
            users.push_back(std::make_unique<RunningThread>([&, t] {
                std::mt19937 random{t};
                for (int i = 0; i < 200; ++i) {
                    switch (random() % 5) {
                    case 0:
                        thread.start(false);
                        break;
                    case 1:
                        thread.start(priorityHighest, true); // ends by itself
                        break;
                    case 2:
                        thread.join();
                        break;
                    case 3:
                        thread.reap();
                        break;
                    default:
                        thread.setPriority(thread.priority());
                        break;
                    }
                }
            }));
        }
    }
    thread.join();
    EXPECT_EQ(tooMany, 0);
    EXPECT_FALSE(thread.isRunning());
    EXPECT_FALSE(thread.stop.isSet());
    EXPECT_EQ(Thread::registeredThreads(), 0);
}

INSTANTIATE_TEST_SUITE_P(Every, ThreadTest, everyKernel, kernelName);

TEST(Thread, GivesBackEveryHandle) {
    TestClock clock;
    const int before = clock.liveObjects();
    {
        FunctionThread thread{[](Thread&) {}};
        const int idle = clock.liveObjects();
        for (int i = 0; i < 5; ++i) {
            thread.start(false);
            clock.advance(1);
            std::vector<std::unique_ptr<RunningThread>> reapers;
            for (int r = 0; r < 3; ++r)
                reapers.push_back(std::make_unique<RunningThread>([&] { thread.reap(); }));
            reapers.clear();
            EXPECT_EQ(clock.liveObjects(), idle);
        }
    }
    EXPECT_EQ(clock.liveObjects(), before);
}

TEST(Thread, ListBelongsToTheKernelInForce) {
    const auto objectsAfterUse = [] {
        TestClock clock;
        FunctionThread thread{waitForStop};
        thread.start(true);
        thread.join();
        return clock.liveObjects();
    };
    const int first = objectsAfterUse();
    EXPECT_EQ(objectsAfterUse(), first); // no lock left over from the clock before
}

// Stacks that begin at the same page offset contend for the same cache lines.
TEST(Thread, StacksBeginAtDifferentOffsets) {
    std::set<std::uintptr_t> offsets;
    for (int i = 0; i < 32; ++i) {
        FunctionThread thread{[&](Thread&) {
            offsets.insert(reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)) % 4096);
        }};
        thread.start(false);
        thread.join();
    }
    EXPECT_GE(offsets.size(), 3u);
}

TEST(ThreadDeathTest, FatalTextEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            readErrorsAloud();
            FunctionThread thread{[](Thread&) { fatal("the pages are gone"); }};
            thread.start(false);
            thread.join();
        },
        testing::ExitedWithCode(1), "velorine: the pages are gone");
}

/// Forgets to join.
class ForgetfulThread final : public Thread {
    std::uint32_t run() override {
        kernel().sleep(1000);
        return 0;
    }
};

TEST(ThreadDeathTest, OneThatItsClassDidNotJoinIsEndedByForce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            TestClock clock;
            ForgetfulThread thread;
            thread.start(false);
        },
        "ended by force");
}

} // namespace

} // namespace velorine::test
