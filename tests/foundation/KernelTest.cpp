#include "foundation/Kernel.h"

#include "foundation/Event.h"
#include "tests/foundation/EveryKernel.h"
#include "tests/foundation/RawThread.h"

#include <array>
#include <atomic>
#include <climits>
#include <memory>
#include <set>
#include <vector>

namespace velorine::test {

namespace {

class KernelTest : public EveryKernel {
protected:
    static int waitFor(std::initializer_list<Kernel::Handle> handles, int timeoutMs) {
        return kernel().waitAny({handles.begin(), handles.size()}, timeoutMs);
    }
    static std::int64_t elapsedMs(std::int64_t since) {
        return (kernel().counter() - since) * 1000 / kernel().counterFrequency();
    }
};

TEST_P(KernelTest, AutoResetEventLetsOneWaitPass) {
    Event event{Event::Reset::automatic};
    EXPECT_FALSE(event.wait(0));
    event.set();
    event.set(); // an event counts no further than 1
    EXPECT_TRUE(event.wait(0));
    EXPECT_FALSE(event.wait(0));
}

TEST_P(KernelTest, ManualResetEventStaysSetUntilReset) {
    Event event{Event::Reset::manual};
    event.set();
    EXPECT_TRUE(event.wait(0));
    EXPECT_TRUE(event.wait());
    event.reset();
    EXPECT_FALSE(event.wait(0));
}

TEST_P(KernelTest, ResetTakesBackAnAutoResetEvent) {
    Event event{Event::Reset::automatic};
    event.set();
    event.reset();
    EXPECT_FALSE(event.wait(0));
}

TEST_P(KernelTest, AutoResetEventWakesOneOfSeveralThreads) {
    Event event{Event::Reset::automatic};
    Semaphore passed;
    std::atomic<int> count{0};
    std::vector<std::unique_ptr<RawThread>> threads;
    for (int i = 0; i < 3; ++i) {
        threads.push_back(std::make_unique<RawThread>([&] {
            event.wait();
            ++count;
            passed.release(1);
        }));
        threads.back()->resume();
    }
    for (int i = 1; i <= 3; ++i) {
        event.set();
        passed.wait();
        EXPECT_EQ(count, i);
    }
}

TEST_P(KernelTest, ManualResetEventWakesAllThreads) {
    Event event{Event::Reset::manual};
    std::atomic<int> count{0};
    {
        std::vector<std::unique_ptr<RawThread>> threads;
        for (int i = 0; i < 3; ++i) {
            threads.push_back(std::make_unique<RawThread>([&] {
                event.wait();
                ++count;
            }));
            threads.back()->resume();
        }
        event.set();
    }
    EXPECT_EQ(count, 3);
}

TEST_P(KernelTest, SemaphoreLetsAsManyPassAsReleased) {
    const Kernel::Handle semaphore = kernel().createSemaphore();
    EXPECT_EQ(waitFor({semaphore}, 0), Kernel::timedOut);
    kernel().releaseSemaphore(semaphore, 3);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(waitFor({semaphore}, 0), 0);
    EXPECT_EQ(waitFor({semaphore}, 0), Kernel::timedOut);
    kernel().close(semaphore);
}

TEST_P(KernelTest, SemaphoreWakesAsManyThreadsAsReleased) {
    Semaphore semaphore;
    Semaphore passed;
    std::atomic<int> count{0};
    std::vector<std::unique_ptr<RawThread>> threads;
    for (int i = 0; i < 5; ++i) {
        threads.push_back(std::make_unique<RawThread>([&] {
            semaphore.wait();
            ++count;
            passed.release(1);
        }));
        threads.back()->resume();
    }
    semaphore.release(2);
    passed.wait();
    passed.wait();
    EXPECT_EQ(count, 2);
    semaphore.release(3);
}

TEST_P(KernelTest, SemaphoreRefusesAReleaseBeyondItsMaximum) {
    const Kernel::Handle semaphore = kernel().createSemaphore();
    kernel().releaseSemaphore(semaphore, INT_MAX);
    kernel().releaseSemaphore(semaphore, 1);
    EXPECT_EQ(waitFor({semaphore}, 0), 0);
    kernel().releaseSemaphore(semaphore, 2); // one too many: refused whole
    kernel().releaseSemaphore(semaphore, 1);
    EXPECT_EQ(waitFor({semaphore}, 0), 0);
    kernel().close(semaphore);
}

TEST_P(KernelTest, MultiWaitTakesTheFirstInTheOrderGiven) {
    Event a{Event::Reset::automatic};
    Event b{Event::Reset::manual};
    Event c{Event::Reset::automatic};
    c.set();
    b.set();
    EXPECT_EQ(waitFor({a.native(), b.native(), c.native()}, 0), 1);
    EXPECT_EQ(waitFor({c.native(), b.native(), a.native()}, 0), 0);
    EXPECT_EQ(waitFor({a.native(), c.native()}, 0), Kernel::timedOut); // c was taken
    b.reset();
    a.set();
    c.set();
    EXPECT_EQ(waitFor({a.native(), b.native(), c.native()}, 0), 0);
    EXPECT_EQ(waitFor({a.native(), b.native(), c.native()}, 0), 2);
}

TEST_P(KernelTest, MultiWaitTakesNothingButItsAnswer) {
    Event a{Event::Reset::automatic};
    Event b{Event::Reset::automatic};
    Event waiting{Event::Reset::automatic};
    int answer = -2;
    {
        RawThread thread{[&] {
            waiting.set();
            answer = waitFor({a.native(), b.native()}, Kernel::forever);
        }};
        thread.resume();
        waiting.wait();
        b.set();
    }
    EXPECT_EQ(answer, 1);
    a.set(); // the thread that waited for it too has gone
    EXPECT_TRUE(a.wait(0));
    EXPECT_FALSE(b.wait(0));
}

TEST_P(KernelTest, MultiWaitMixesEventsSemaphoresAndThreads) {
    Event event{Event::Reset::automatic};
    const Kernel::Handle semaphore = kernel().createSemaphore();
    RawThread thread{[] {}};
    kernel().releaseSemaphore(semaphore, 1);
    EXPECT_EQ(waitFor({event.native(), semaphore, thread.native()}, 0), 1);
    thread.resume();
    EXPECT_EQ(waitFor({event.native(), semaphore, thread.native()}, Kernel::forever), 2);
    event.set();
    EXPECT_EQ(waitFor({event.native(), semaphore, thread.native()}, Kernel::forever), 0);
    kernel().close(semaphore);
}

TEST_P(KernelTest, WaitTimesOutNoSoonerThanAsked) {
    Event event{Event::Reset::automatic};
    const std::int64_t start = kernel().counter();
    EXPECT_EQ(waitFor({event.native()}, 5), Kernel::timedOut);
    if (timeIsReal())
        EXPECT_GE(elapsedMs(start), 5);
    else
        EXPECT_EQ(elapsedMs(start), 5);
}

TEST_P(KernelTest, SignalAfterATimeOutIsNotLost) {
    Event event{Event::Reset::automatic};
    Event other{Event::Reset::automatic};
    EXPECT_EQ(waitFor({other.native(), event.native()}, 1), Kernel::timedOut);
    event.set();
    EXPECT_TRUE(event.wait(0));
}

TEST_P(KernelTest, SignalEndsATimedWait) {
    Event event{Event::Reset::automatic};
    RawThread thread{[&] { event.set(); }};
    const std::int64_t start = kernel().counter();
    thread.resume();
    EXPECT_TRUE(event.wait(3'600'000));
    EXPECT_LT(elapsedMs(start), 3'600'000);
}

TEST_P(KernelTest, ThreadStandsStillUntilResumed) {
    std::atomic<bool> ran{false};
    RawThread thread{[&] { ran = true; }};
    EXPECT_FALSE(thread.wait(5)); // time enough for one that would run
    EXPECT_FALSE(ran);
    thread.resume();
    EXPECT_TRUE(thread.wait());
    EXPECT_TRUE(ran);
}

TEST_P(KernelTest, ThreadHandleStaysSetOnceTheThreadEnded) {
    RawThread thread{[] {}};
    EXPECT_FALSE(thread.wait(0));
    thread.resume();
    EXPECT_TRUE(thread.wait());
    EXPECT_TRUE(thread.wait(0));
}

TEST_P(KernelTest, ThreadsHaveIdsOfTheirOwn) {
    std::array<std::uint32_t, 4> ids{};
    {
        std::vector<std::unique_ptr<RawThread>> threads;
        for (std::uint32_t& id : ids) {
            threads.push_back(
                std::make_unique<RawThread>([&id] { id = kernel().currentThreadId(); }));
        }
        for (auto& thread : threads)
            thread->resume();
    }
    std::set<std::uint32_t> distinct{ids.begin(), ids.end()};
    distinct.insert(kernel().currentThreadId());
    EXPECT_EQ(distinct.size(), 5u);
    EXPECT_EQ(distinct.count(0), 0u);
    EXPECT_EQ(kernel().currentThreadId(), kernel().currentThreadId());
}

TEST_P(KernelTest, PrioritiesAreStoredWhetherGrantedOrNot) {
    for (const int priority : {15, 2, 0, -15}) {
        Event asked{Event::Reset::automatic};
        Event answered{Event::Reset::automatic};
        int own = 99;
        RawThread thread{[&] {
            own = kernel().currentPriority();
            kernel().setCurrentPriority(2);
            asked.set();
            answered.wait();
        }};
        EXPECT_EQ(kernel().threadPriority(thread.native()), 0);
        kernel().setThreadPriority(thread.native(), priority);
        EXPECT_EQ(kernel().threadPriority(thread.native()), priority);
        thread.resume();
        asked.wait();
        EXPECT_EQ(own, priority);
        EXPECT_EQ(kernel().threadPriority(thread.native()), 2);
        answered.set();
    }
}

TEST_P(KernelTest, AThreadOfTheHostKeepsItsPriorityToo) {
    const int before = kernel().currentPriority();
    kernel().setCurrentPriority(2);
    EXPECT_EQ(kernel().currentPriority(), 2);
    kernel().setCurrentPriority(before);
    EXPECT_EQ(kernel().currentPriority(), before);
}

TEST_P(KernelTest, SleepLetsTimePass) {
    const std::int64_t start = kernel().counter();
    const std::uint32_t media = kernel().mediaTime();
    const std::uint32_t ticks = kernel().tickCount();
    kernel().sleep(20);
    EXPECT_GE(elapsedMs(start), 20);
    EXPECT_GE(kernel().mediaTime() - media, 20u - 1u);  // a reading is cut to whole ms
    EXPECT_GE(kernel().tickCount() - ticks, 20u - 16u); // and the tick count may be coarser
}

INSTANTIATE_TEST_SUITE_P(Every, KernelTest, everyKernel, kernelName);

} // namespace

} // namespace velorine::test
