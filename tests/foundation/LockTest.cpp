#include "foundation/Lock.h"

#include "tests/foundation/EveryKernel.h"
#include "tests/foundation/RawThread.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <vector>

namespace velorine::test {

namespace {

class LockTest : public EveryKernel {};

TEST_P(LockTest, KeepsThreadsApart) {
    Lock lock;
    int total = 0; // guarded by lock: a lost update would show
    {
        std::vector<std::unique_ptr<RunningThread>> threads;
        for (int t = 0; t < 4; ++t) {
            threads.push_back(std::make_unique<RunningThread>([&] {
                for (int i = 0; i < 500; ++i) {
                    const Lock::Scope scope{lock};
                    const int seen = total;
                    if (i % 16 == 0) kernel().sleep(0); // the others meet a lock that is held
                    total = seen + 1;
                }
            }));
        }
    }
    EXPECT_EQ(total, 2000);
    EXPECT_EQ(lock.users(), 0);
}

INSTANTIATE_TEST_SUITE_P(Every, LockTest, everyKernel, kernelName);

TEST(Lock, CountsTheThreadInItAndThoseThatWait) {
    TestClock clock;
    Lock lock;
    EXPECT_EQ(lock.users(), 0);
    {
        std::vector<std::unique_ptr<RunningThread>> threads;
        {
            const Lock::Scope scope{lock};
            EXPECT_EQ(lock.users(), 1);
            for (int t = 0; t < 3; ++t)
                threads.push_back(
                    std::make_unique<RunningThread>([&] { const Lock::Scope inner{lock}; }));
            clock.advance(1);
            EXPECT_EQ(lock.users(), 4);
        }
    }
    EXPECT_EQ(lock.users(), 0);
}

TEST(Lock, WaitersGetItInTheirOrder) {
    TestClock clock;
    Lock lock;
    std::vector<int> order;
    {
        std::vector<std::unique_ptr<RunningThread>> threads;
        const Lock::Scope scope{lock};
        for (int t = 0; t < 3; ++t) {
            threads.push_back(std::make_unique<RunningThread>([&, t] {
                const Lock::Scope inner{lock};
                order.push_back(t);
            }));
            clock.advance(1);
        }
        lock.unlock();
        for (auto& thread : threads)
            thread->wait();
        lock.lock();
    }
    EXPECT_EQ(order, (std::vector{0, 1, 2}));
}

TEST(Lock, ExceptionGivesItBack) {
    Lock lock;
    const auto throwInside = [&] {
        const Lock::Scope scope{lock};
        throw std::runtime_error("from inside");
    };
    EXPECT_THROW(throwInside(), std::runtime_error);
    EXPECT_EQ(lock.users(), 0);
}

// The object that a lock guards may go as soon as its last user has left it, with the one before
// still on its way out of `unlock`. The address sanitizer sees a read that comes too late.
TEST(Lock, MayBeDestroyedByItsLastUser) {
    for (std::uint32_t seed = 1; seed <= 40; ++seed) {
        TestClock clock{TestClock::Mode::serial, seed};
        auto* const lock = new Lock;
        lock->lock();
        RunningThread last{[&] {
            lock->lock();
            lock->unlock();
            delete lock;
        }};
        clock.advance(1);
        lock->unlock();
    }
}

} // namespace

} // namespace velorine::test
