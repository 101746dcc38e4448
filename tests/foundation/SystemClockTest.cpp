#include "foundation/SystemClock.h"

#include "foundation/Lock.h"
#include "tests/foundation/RawThread.h"
#include "tests/support/TestClock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <vector>

namespace velorine::test {

namespace {

TEST(SystemClock, ReadsTheCounterIn100NsTicks) {
    for (const std::int64_t frequency : {10'000'000, 3'579'545, 1'000'000'000}) {
        TestClock kernelClock;
        kernelClock.frequency = frequency;
        const SystemClock clock;
        const FxTime start = clock.now();
        kernelClock.advance(12'345);
        // the factor's rounding, 2^-53, of a counter that has run for days
        EXPECT_NEAR(static_cast<double>(clock.now() - start), 123'450'000.0, 4.0) << frequency;
    }
}

TEST(SystemClock, NativeTimeGoesForward) {
    const SystemClock clock;
    const FxTime start = clock.now();
    FxTime before = start;
    for (int i = 0; i < 10'000; ++i) {
        const FxTime now = clock.now();
        ASSERT_GE(now, before);
        before = now;
    }
    kernel().sleep(2);
    EXPECT_GE(clock.now() - start, 2 * ticksPerMs);
}

TEST(SystemClock, WithoutACounterItReadsTheMediaTime) {
    TestClock kernelClock;
    kernelClock.frequency = 0;
    kernelClock.tickStart = 1000;
    const SystemClock clock;
    EXPECT_EQ(clock.now(), 1000 * ticksPerMs);
    kernelClock.advance(7);
    EXPECT_EQ(clock.now(), 1007 * ticksPerMs);
}

TEST(SystemClock, EachChangeOfTheTopBitCountsOnce) {
    constexpr int day = 86'400'000; // ms: half a wrap takes 24.9
    TestClock kernelClock;
    kernelClock.frequency = 0;
    kernelClock.tickStart = 0x7fff'ff00;
    const SystemClock clock;
    for (std::int64_t days = 0; days < 400; ++days) {
        const std::int64_t ms = 0x7fff'ff00 + days * day;
        ASSERT_EQ(clock.now(), ms * ticksPerMs) << "day " << days;
        ASSERT_EQ(clock.now(), ms * ticksPerMs) << "day " << days;
        kernelClock.advance(day);
    }
}

TEST(SystemClock, MachineThatHasRunForWeeksBeginsWithTheTopBitSet) {
    TestClock kernelClock;
    kernelClock.frequency = 0;
    kernelClock.tickStart = 0xffff'ffff;
    const SystemClock clock;
    EXPECT_EQ(clock.now(), std::int64_t{0xffff'ffff} * ticksPerMs);
    kernelClock.advance(1);
    EXPECT_EQ(clock.now(), (std::int64_t{1} << 32) * ticksPerMs);
}

// Whichever thread sees the new top bit first counts it, and no other does so again.
TEST(SystemClock, TwoThreadsCountAWrapOnce) {
    constexpr int step = 1 << 30; // ms: two to each change of the top bit
    for (int round = 0; round < 20; ++round) {
        TestClock kernelClock{TestClock::Mode::parallel};
        kernelClock.frequency = 0;
        const SystemClock clock;
        std::atomic<int> wrong{0};
        const auto read = [&] {
            for (std::int64_t i = 1; i <= 12; ++i) {
                kernelClock.sleep(step); // both wake at the same time
                for (int k = 0; k < 5; ++k)
                    if (clock.now() != i * step * ticksPerMs) ++wrong;
            }
        };
        {
            const RunningThread a{read};
            const RunningThread b{read};
        }
        EXPECT_EQ(wrong, 0);
    }
}

/// A clock without a counter on which every reading gives way to the other threads.
class SlowReadings final : public TestClock {
public:
    SlowReadings() { frequency = 0; }
    std::uint32_t mediaTime() override {
        const std::uint32_t reading = TestClock::mediaTime();
        sleep(0);
        return reading;
    }
};

// All have seen the new top bit before one of them gets to count it.
TEST(SystemClock, WrapThatSeveralThreadsSeeAtOnceCountsOnce) {
    SlowReadings kernelClock;
    kernelClock.tickStart = 0x7fff'fff0;
    const SystemClock clock;
    clock.now();
    kernelClock.advance(100);
    std::vector<FxTime> times;
    {
        std::vector<std::unique_ptr<RunningThread>> threads;
        for (int t = 0; t < 4; ++t)
            threads.push_back(
                std::make_unique<RunningThread>([&] { times.push_back(clock.now()); }));
    }
    ASSERT_EQ(times.size(), 4u);
    for (const FxTime time : times) {
        EXPECT_GE(time, (0x7fff'fff0 + 100LL) * ticksPerMs);
        EXPECT_LE(time, (0x7fff'fff0 + 105LL) * ticksPerMs); // giving way takes 0.1 ms now and then
    }
}

TEST(SystemClock, KeepsTheShortestTimerPeriodMeanwhile) {
    struct Case {
        unsigned shortest;
        int had;
    };
    for (const Case c : {Case{0, 1}, Case{1, 1}, Case{2, 2}, Case{5, 5}}) {
        TestClock kernelClock;
        kernelClock.shortestPeriod = c.shortest;
        {
            const SystemClock clock;
            EXPECT_EQ(clock.timerPeriod(), c.had);
            EXPECT_EQ(kernelClock.timerPeriods, 1);
        }
        EXPECT_EQ(kernelClock.timerPeriods, 0);
    }
}

TEST(SystemClock, PeriodThatWasRefusedIsNotEnded) {
    TestClock kernelClock;
    kernelClock.grantsTimerPeriods = false;
    {
        const SystemClock clock;
        EXPECT_EQ(clock.timerPeriod(), -1);
        const TimerPeriodScope scope;
        EXPECT_FALSE(scope.granted());
    }
    EXPECT_EQ(kernelClock.timerPeriods, 0);
}

TEST(TimerPeriodScope, EndsWhatItBegan) {
    TestClock kernelClock;
    {
        const TimerPeriodScope scope;
        EXPECT_TRUE(scope.granted());
        EXPECT_EQ(kernelClock.timerPeriods, 1);
    }
    EXPECT_EQ(kernelClock.timerPeriods, 0);
}

TEST(SystemClock, TimeMayBeAskedUnderAnyLock) {
    TestClock kernelClock;
    kernelClock.frequency = 0;
    kernelClock.tickStart = 0x8000'0000; // the first reading has a wrap to count
    const SystemClock clock;
    Lock leaf;
    const Lock::Scope scope{leaf};
    EXPECT_EQ(clock.now(), std::int64_t{0x8000'0000} * ticksPerMs);
}

} // namespace

} // namespace velorine::test
