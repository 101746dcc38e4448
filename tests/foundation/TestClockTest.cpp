#include "tests/support/TestClock.h"

#include "foundation/Event.h"
#include "foundation/Lock.h"
#include "tests/foundation/RawThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <random>
#include <set>
#include <thread>
#include <vector>

namespace velorine::test {

namespace {

constexpr std::int64_t ticksPerHour = 36'000'000'000;
constexpr int hour = 3'600'000; ///< ms

TEST(TestClock, StandsInForTheNativeKernelAsLongAsItLives) {
    {
        TestClock clock;
        EXPECT_EQ(&kernel(), &clock);
    }
    EXPECT_EQ(&kernel(), &Kernel::native());
}

TEST(TestClock, TimeJumpsToTheEarliestDeadline) {
    TestClock clock;
    std::vector<std::pair<int, std::int64_t>> woken;
    {
        std::vector<std::unique_ptr<RunningThread>> threads;
        for (const int hours : {3, 1, 2}) {
            threads.push_back(std::make_unique<RunningThread>([&, hours] {
                clock.sleep(hours * hour);
                woken.emplace_back(hours, clock.ticks());
            }));
        }
        EXPECT_EQ(clock.ticks(), 0); // it stands still while anybody runs
    }
    EXPECT_EQ(woken,
              (decltype(woken){{1, ticksPerHour}, {2, 2 * ticksPerHour}, {3, 3 * ticksPerHour}}));
}

TEST(TestClock, SignalComesBeforeTheDeadline) {
    TestClock clock;
    Event event{Event::Reset::automatic};
    const RunningThread setter{[&] {
        clock.sleep(20);
        event.set();
    }};
    EXPECT_TRUE(event.wait(50));
    EXPECT_EQ(clock.ticks(), 200'000);
    EXPECT_FALSE(event.wait(50));
    EXPECT_EQ(clock.ticks(), 700'000);
}

TEST(TestClock, CountersFollowTheTime) {
    TestClock clock;
    clock.tickStart = 0xffff'fff0;
    clock.frequency = 3'579'545;
    const std::int64_t start = clock.counter();
    EXPECT_GT(start, 0);
    clock.advance(2000);
    EXPECT_EQ(clock.counter() - start, 2 * 3'579'545);
    EXPECT_EQ(clock.mediaTime(), 2000u - 16u); // wrapped
    EXPECT_EQ(clock.tickCount(), 2000u - 16u);
    clock.advance(1);
    EXPECT_EQ(clock.counter() - start, 2 * 3'579'545 + 3579);
}

/// What several threads did, in the order in which they did it.
using Trace = std::vector<std::pair<std::uint32_t, std::int64_t>>;

Trace traceOf(std::uint32_t seed) {
    TestClock clock{TestClock::Mode::serial, seed};
    Lock lock;
    Event event{Event::Reset::automatic};
    Semaphore semaphore;
    Trace trace; // only one thread runs at a time
    {
        std::vector<std::unique_ptr<RunningThread>> threads;
        for (std::uint32_t t = 0; t < 5; ++t) {
            threads.push_back(std::make_unique<RunningThread>([&, t] {
                std::mt19937 random{t};
                for (int i = 0; i < 50; ++i) {
                    trace.emplace_back(t, clock.ticks());
                    switch (random() % 5) {
                    case 0:
                        clock.sleep(static_cast<int>(random() % 3));
                        break;
                    case 1:
                        event.set();
                        break;
                    case 2:
                        event.wait(static_cast<int>(random() % 4));
                        break;
                    case 3:
                        semaphore.release(1);
                        semaphore.wait();
                        break;
                    default: {
                        const Lock::Scope scope{lock};
                        clock.sleep(0);
                        break;
                    }
                    }
                }
            }));
        }
    }
    return trace;
}

TEST(TestClock, SerialRunIsTheSameTwice) {
    for (const std::uint32_t seed : {0u, 1u, 2u, 77u})
        EXPECT_EQ(traceOf(seed), traceOf(seed)) << "seed " << seed;
}

TEST(TestClock, SeedsVaryTheOrder) {
    std::set<Trace> traces;
    for (std::uint32_t seed = 0; seed < 10; ++seed)
        traces.insert(traceOf(seed));
    EXPECT_EQ(traces.size(), 10u);
}

TEST(TestClock, SerialRunsOneThreadAtATime) {
    for (const std::uint32_t seed : {0u, 5u}) {
        TestClock clock{TestClock::Mode::serial, seed};
        std::atomic<int> inside{0};
        std::atomic<bool> together{false};
        std::vector<std::unique_ptr<RunningThread>> threads;
        for (int t = 0; t < 4; ++t) {
            threads.push_back(std::make_unique<RunningThread>([&] {
                for (int i = 0; i < 20; ++i) {
                    if (++inside != 1) together = true;
                    std::this_thread::yield();
                    --inside;
                    clock.sleep(i % 2);
                }
            }));
        }
        threads.clear();
        EXPECT_FALSE(together);
    }
}

// Each waits for the other without the kernel: that takes two that really run.
TEST(TestClock, ParallelRunsThreadsBesideEachOther) {
    TestClock clock{TestClock::Mode::parallel};
    std::atomic<int> arrived{0};
    const auto meet = [&] {
        clock.sleep(10); // both wake at the same time
        ++arrived;
        while (arrived < 2)
            std::this_thread::yield();
    };
    {
        const RunningThread a{meet};
        const RunningThread b{meet};
    }
    EXPECT_EQ(arrived, 2);
    EXPECT_EQ(clock.ticks(), 100'000);
}

TEST(TestClock, AllWhoseTimeHasComeAreReadyAtOnce) {
    std::set<std::vector<int>> orders;
    for (std::uint32_t seed = 1; seed <= 30; ++seed) {
        TestClock clock{TestClock::Mode::serial, seed};
        std::vector<int> order;
        std::vector<std::unique_ptr<RunningThread>> threads;
        for (int t = 0; t < 3; ++t) {
            threads.push_back(std::make_unique<RunningThread>([&, t] {
                clock.sleep(10 - t); // until the same moment
                order.push_back(t);
            }));
            clock.sleep(1);
        }
        threads.clear();
        orders.insert(order);
    }
    EXPECT_EQ(orders.size(), 6u); // every order there is
}

TEST(TestClock, ThreadsThatAskAgainAndAgainLetTimePass) {
    for (const auto mode : {TestClock::Mode::serial, TestClock::Mode::parallel}) {
        for (const int spinners : {1, 2, 3}) {
            TestClock clock{mode};
            std::atomic<bool> done{false};
            {
                std::vector<std::unique_ptr<RunningThread>> threads;
                for (int t = 0; t < spinners; ++t) {
                    threads.push_back(std::make_unique<RunningThread>([&] {
                        while (!done)
                            clock.sleep(0);
                    }));
                }
                clock.sleep(5);
                done = true;
            }
            EXPECT_GE(clock.ticks(), 50'000);
            EXPECT_LE(clock.ticks(), 52'000);
        }
    }
}

TEST(TestClock, SleepOfNothingLetsTheOthersRunFirst) {
    TestClock clock;
    bool ran = false;
    const RunningThread other{[&] { ran = true; }};
    EXPECT_FALSE(ran); // it has been made ready, but only one runs
    clock.sleep(0);
    EXPECT_TRUE(ran);
    EXPECT_EQ(clock.ticks(), 0);
}

TEST(TestClock, CountsWhatWasNotGivenBack) {
    TestClock clock;
    EXPECT_EQ(clock.liveObjects(), 0);
    {
        Event event{Event::Reset::manual};
        Semaphore semaphore;
        const RunningThread thread{[] {}};
        EXPECT_EQ(clock.liveObjects(), 3);
    }
    EXPECT_EQ(clock.liveObjects(), 0);
}

TEST(TestClock, HoursTakeNoTime) {
    TestClock clock;
    for (int i = 0; i < 1000; ++i)
        clock.sleep(hour);
    EXPECT_EQ(clock.ticks(), 1000 * ticksPerHour);
}

class TestClockDeathTest : public testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(TestClockDeathTest, WaitWithoutEndOfEverybodyIsReported) {
    EXPECT_DEATH(
        {
            TestClock clock;
            Event event{Event::Reset::automatic};
            const RunningThread other{[&] { event.wait(); }};
            event.wait();
        },
        "all 2 threads wait for ever");
}

TEST_F(TestClockDeathTest, ThreadFromElsewhereIsReported) {
    EXPECT_DEATH(
        {
            TestClock clock;
            Event event{Event::Reset::automatic};
            std::thread foreign{[&] { event.wait(); }};
            foreign.join();
        },
        "wasn't made through the clock");
}

TEST_F(TestClockDeathTest, ThreadThatOutlivesItIsReported) {
    EXPECT_DEATH(
        {
            TestClock clock;
            kernel().createThread([](void*) { return 0u; }, nullptr);
        },
        "outlive their clock");
}

} // namespace

} // namespace velorine::test
