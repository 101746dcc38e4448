#include "foundation/RecursiveLock.h"

#include "tests/foundation/EveryKernel.h"
#include "tests/foundation/RawThread.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace velorine::test {

namespace {

using Scope = RecursiveLock::Scope;

class RecursiveLockTest : public EveryKernel {};

TEST_P(RecursiveLockTest, KeepsThreadsApart) {
    RecursiveLock lock;
    int total = 0; // guarded by lock: a lost update would show
    {
        std::vector<std::unique_ptr<RunningThread>> threads;
        for (int t = 0; t < 4; ++t) {
            threads.push_back(std::make_unique<RunningThread>([&] {
                for (int i = 0; i < 500; ++i) {
                    const Scope outer{lock};
                    const int seen = total;
                    if (i % 16 == 0) kernel().sleep(0);
                    {
                        const Scope inner{lock};
                        total = seen + 1;
                    }
                }
            }));
        }
    }
    EXPECT_EQ(total, 2000);
    EXPECT_EQ(lock.users(), 0);
    EXPECT_FALSE(lock.heldByCaller());
}

INSTANTIATE_TEST_SUITE_P(Every, RecursiveLockTest, everyKernel, kernelName);

TEST(RecursiveLock, InnerScopeTakesNothingAndItsEndLeavesTheLockHeld) {
    TestClock clock;
    RecursiveLock lock;
    bool got = false;
    {
        Scope outer{lock};
        { const Scope inner{lock}; }
        EXPECT_TRUE(lock.heldByCaller());
        EXPECT_EQ(lock.users(), 1);

        RunningThread other{[&] {
            EXPECT_FALSE(lock.heldByCaller());
            const Scope scope{lock};
            got = true;
        }};
        clock.advance(1);
        EXPECT_FALSE(got);
        EXPECT_EQ(lock.users(), 2);
        outer.giveBack();
    }
    EXPECT_TRUE(got);
    EXPECT_EQ(lock.users(), 0);
}

TEST(RecursiveLock, EmptyScopeHoldsNothing) {
    RecursiveLock lock;
    {
        Scope scope;
        scope.giveBack();
        scope.moveTo(lock);
        EXPECT_TRUE(lock.heldByCaller());
        scope.giveBack();
        EXPECT_FALSE(lock.heldByCaller());
        scope.giveBack();
        EXPECT_EQ(lock.users(), 0);
    }
    EXPECT_EQ(lock.users(), 0);
}

TEST(RecursiveLock, MovedScopeGivesBackFirstAndThenTakes) {
    TestClock clock;
    RecursiveLock first{LockRank::ring};
    RecursiveLock second{LockRank::stage};
    std::string order;
    Scope scope{first};
    RunningThread other{[&] {
        const Scope outer{second};
        order += 'a';
        const Scope inner{
            first}; // would wait for ever if the mover kept it until it has the second
        order += 'b';
    }};
    clock.advance(1);
    EXPECT_EQ(order, "a");
    scope.moveTo(second);
    order += 'c';
    EXPECT_EQ(order, "abc");
    EXPECT_TRUE(second.heldByCaller());
    EXPECT_EQ(first.users(), 0);
}

TEST(RecursiveLock, ScopeMovedToWhatItHoldsKeepsIt) {
    TestClock clock;
    RecursiveLock lock;
    bool got = false;
    Scope scope{lock};
    RunningThread other{[&] {
        const Scope inner{lock};
        got = true;
    }};
    clock.advance(1);
    scope.moveTo(lock);
    clock.advance(1);
    EXPECT_FALSE(got); // not even for a moment
    EXPECT_TRUE(lock.heldByCaller());
    scope.giveBack();
    other.wait();
    EXPECT_TRUE(got);
}

TEST(RecursiveLock, InnerScopeThatMovesLeavesTheOuterOneItsLock) {
    RecursiveLock outerLock{LockRank::stage};
    RecursiveLock otherLock{LockRank::ring};
    {
        const Scope outer{outerLock};
        {
            Scope inner{outerLock};
            inner.moveTo(otherLock);
            EXPECT_TRUE(outerLock.heldByCaller());
            EXPECT_TRUE(otherLock.heldByCaller());
            inner.moveTo(outerLock);
            EXPECT_FALSE(otherLock.heldByCaller());
        }
        EXPECT_TRUE(outerLock.heldByCaller());
    }
    EXPECT_EQ(outerLock.users(), 0);
    EXPECT_EQ(otherLock.users(), 0);
}

TEST(RecursiveLock, ExceptionGivesItBack) {
    RecursiveLock lock;
    const auto throwInside = [&] {
        const Scope outer{lock};
        const Scope inner{lock};
        throw std::runtime_error("from inside");
    };
    EXPECT_THROW(throwInside(), std::runtime_error);
    EXPECT_FALSE(lock.heldByCaller());
    EXPECT_EQ(lock.users(), 0);
}

TEST(RecursiveLock, MayBeDestroyedByItsLastUser) {
    for (std::uint32_t seed = 1; seed <= 40; ++seed) {
        TestClock clock{TestClock::Mode::serial, seed};
        auto* const lock = new RecursiveLock;
        Scope scope{*lock};
        RunningThread last{[&] {
            { const Scope inner{*lock}; }
            delete lock;
        }};
        clock.advance(1);
        scope.giveBack();
    }
}

} // namespace

} // namespace velorine::test
