#include "foundation/RWLock.h"

#include "tests/foundation/EveryKernel.h"
#include "tests/foundation/RawThread.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace velorine::test {

namespace {

class RWLockTest : public EveryKernel {};

TEST_P(RWLockTest, ReadersNeverSeeAWriterHalfWay) {
    RWLock lock;
    int low = 0; // guarded by lock: the two are always the same
    int high = 0;
    std::atomic<int> torn{0};
    std::atomic<int> written{0};
    {
        std::vector<std::unique_ptr<RunningThread>> threads;
        for (std::uint32_t t = 0; t < 4; ++t) {
            threads.push_back(std::make_unique<RunningThread>([&, t] {
                std::mt19937 random{t};
                for (int i = 0; i < 1000; ++i) {
                    if (random() % 4 == 0) {
                        const RWLock::WriteScope scope{lock};
                        ++low;
                        if (i % 16 == 0) kernel().sleep(0);
                        ++high;
                        ++written;
                    } else {
                        const RWLock::ReadScope scope{lock};
                        const int seen = low;
                        if (i % 16 == 0) kernel().sleep(0);
                        if (seen != high) ++torn;
                    }
                }
            }));
        }
    }
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(low, written);
    EXPECT_TRUE(lock.lockWrite()); // all of it was given back
    lock.unlockWrite();
}

INSTANTIATE_TEST_SUITE_P(Every, RWLockTest, everyKernel, kernelName);

TEST(RWLock, ReadersShareIt) {
    TestClock clock;
    RWLock lock;
    const RWLock::ReadScope scope{lock};
    bool got = false;
    RunningThread other{[&] {
        const RWLock::ReadScope inner{lock};
        got = true;
    }};
    clock.advance(1);
    EXPECT_TRUE(got);
}

TEST(RWLock, WriterTakesNothingOfWhatItHolds) {
    TestClock clock;
    RWLock lock;
    EXPECT_TRUE(lock.lockWrite());
    EXPECT_FALSE(lock.lockRead());
    EXPECT_FALSE(lock.lockWrite());
    {
        const RWLock::WriteScope write{lock};
        const RWLock::ReadScope read{lock};
    }
    bool got = false;
    RunningThread other{[&] {
        const RWLock::ReadScope scope{lock};
        got = true;
    }};
    clock.advance(1);
    EXPECT_FALSE(got); // the scopes' ends have given nothing back
    lock.unlockWrite();
    other.wait();
    EXPECT_TRUE(got);
}

/// Threads that note when they get a lock, and hold it until told.
class Queue {
public:
    Queue(TestClock& testClock, RWLock& underTest) : clock(testClock), lock(underTest) {}

    void reader(char name) {
        add([this, name] {
            const RWLock::ReadScope scope{lock};
            hold(name);
        });
    }
    void writer(char name) {
        add([this, name] {
            const RWLock::WriteScope scope{lock};
            hold(name);
        });
    }
    std::string let(int count = 1) {
        go.release(count);
        clock.advance(1);
        return order;
    }
    const std::string& got() const { return order; }

private:
    void add(std::function<void()> work) {
        threads.push_back(std::make_unique<RunningThread>(std::move(work)));
        clock.advance(1);
    }
    void hold(char name) {
        order += name;
        go.wait();
    }

    TestClock& clock;
    RWLock& lock;
    Semaphore go;
    std::string order;
    std::vector<std::unique_ptr<RunningThread>> threads;
};

TEST(RWLock, WriterThatGoesPrefersTheNextWriter) {
    TestClock clock;
    RWLock lock;
    Queue queue{clock, lock};
    queue.writer('W');
    queue.reader('a');
    queue.reader('b');
    queue.writer('X');
    queue.writer('Y');
    queue.reader('c');
    EXPECT_EQ(queue.got(), "W");
    EXPECT_EQ(queue.let(), "WX"); // and no reader beside it
    EXPECT_EQ(queue.let(), "WXY");
    EXPECT_EQ(queue.let(), "WXYabc"); // then all readers at once
    queue.let(3);
}

TEST(RWLock, ReadersAreAdmittedWhileAWriterWaits) {
    TestClock clock;
    RWLock lock;
    Queue queue{clock, lock};
    queue.reader('a');
    queue.writer('W');
    queue.reader('b');
    EXPECT_EQ(queue.got(), "ab");
    EXPECT_EQ(queue.let(1), "ab"); // the writer waits for the last of them
    EXPECT_EQ(queue.let(1), "abW");
    queue.let(1);
}

TEST(RWLock, ReadersThatCameDuringAHandOverWait) {
    TestClock clock;
    RWLock lock;
    Queue queue{clock, lock};
    queue.reader('a');
    queue.writer('W');
    EXPECT_EQ(queue.let(), "aW");
    queue.reader('b');
    EXPECT_EQ(queue.got(), "aW");
    EXPECT_EQ(queue.let(), "aWb");
    queue.let();
}

TEST(RWLock, ExceptionGivesItBack) {
    RWLock lock;
    const auto throwAsWriter = [&] {
        const RWLock::WriteScope outer{lock};
        const RWLock::ReadScope inner{lock};
        throw std::runtime_error("from inside");
    };
    const auto throwAsReader = [&] {
        const RWLock::ReadScope scope{lock};
        throw std::runtime_error("from inside");
    };
    EXPECT_THROW(throwAsWriter(), std::runtime_error);
    EXPECT_THROW(throwAsReader(), std::runtime_error);
    EXPECT_TRUE(lock.lockWrite());
    lock.unlockWrite();
}

TEST(RWLock, MayBeDestroyedByItsLastUser) {
    for (std::uint32_t seed = 1; seed <= 40; ++seed) {
        TestClock clock{TestClock::Mode::serial, seed};
        auto* const lock = new RWLock;
        lock->lockRead();
        RunningThread last{[&] {
            lock->lockWrite();
            lock->unlockWrite();
            delete lock;
        }};
        clock.advance(1);
        lock->unlockRead();
    }
}

} // namespace

} // namespace velorine::test
