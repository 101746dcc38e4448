#include "foundation/Event.h"
#include "foundation/PriorityScope.h"
#include "tests/foundation/RawThread.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <array>

namespace velorine::test {

namespace {

int niceOf(pid_t tid) {
    return getpriority(PRIO_PROCESS, static_cast<id_t>(tid));
}

/// Whether this process may lower a nice value; tried on a thread of its own.
bool mayRaisePriority() {
    bool granted = false;
    {
        RawThread thread{
            [&] { granted = setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), -1) == 0; }};
        thread.resume();
    }
    return granted;
}

TEST(PosixPriority, MapsPrioritiesToNiceValues) {
    if (!mayRaisePriority()) GTEST_SKIP() << "nice values below 0 are not permitted here";
    struct Case {
        int priority;
        int nice;
    };
    for (const Case c : std::array{Case{15, -11}, Case{2, -5}, Case{0, 0}}) {
        int atStart = 99;
        int later = 99;
        {
            RawThread thread{[&] {
                atStart = niceOf(gettid());
                kernel().setCurrentPriority(priorityHighest);
                later = niceOf(gettid());
            }};
            kernel().setThreadPriority(thread.native(), c.priority);
            thread.resume();
        }
        EXPECT_EQ(atStart, c.nice) << "priority " << c.priority;
        EXPECT_EQ(later, -5);
    }
}

TEST(PosixPriority, IsNotInheritedFromTheThreadThatMadeIt) {
    if (!mayRaisePriority()) GTEST_SKIP() << "nice values below 0 are not permitted here";
    int inner = 99;
    {
        RawThread outerThread{[&] {
            kernel().setCurrentPriority(priorityHighest);
            RawThread innerThread{[&] { inner = niceOf(gettid()); }};
            innerThread.resume();
        }};
        outerThread.resume();
    }
    EXPECT_EQ(inner, 0);
}

TEST(PosixPriority, IdleLeavesTheNiceValueAlone) {
    int before = 99;
    int after = 99;
    {
        RawThread thread{[&] {
            before = niceOf(gettid());
            kernel().setCurrentPriority(priorityIdle);
            after = niceOf(gettid());
        }};
        thread.resume();
    }
    EXPECT_EQ(after, before); // it could not be taken back
}

TEST(PosixPriority, AnotherThreadMaySetIt) {
    if (!mayRaisePriority()) GTEST_SKIP() << "nice values below 0 are not permitted here";
    Event ready{Event::Reset::automatic};
    Event go{Event::Reset::automatic};
    pid_t tid = 0;
    RawThread thread{[&] {
        tid = gettid();
        ready.set();
        go.wait();
    }};
    thread.resume();
    ready.wait();
    kernel().setThreadPriority(thread.native(), priorityTimeCritical);
    EXPECT_EQ(niceOf(tid), -11);
    go.set();
}

} // namespace

} // namespace velorine::test
