#include "foundation/RWLock.h"

#include "tests/foundation/RawThread.h"
#include "tests/support/TestClock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <deque>
#include <memory>
#include <random>
#include <vector>

namespace velorine::test {

namespace {

constexpr int threadCount = 6;

enum class Doing { nothing, reading, writing, waitingToRead, waitingToWrite };

using Picture = std::array<Doing, threadCount>; // of all threads

/// Who is in the lock and who waits, worked out one whole request at a time.
class Model {
public:
    void read(std::size_t thread) {
        picture[thread] = writers() == 0 ? Doing::reading : Doing::waitingToRead;
    }

    void write(std::size_t thread) {
        const bool free = writers() == 0 && readers() == 0;
        picture[thread] = free ? Doing::writing : Doing::waitingToWrite;
        if (!free) queue.push_back(thread);
    }

    void leave(std::size_t thread) {
        const bool wasWriter = picture[thread] == Doing::writing;
        picture[thread] = Doing::nothing;
        if (readers() > 0) return;
        if (!queue.empty()) {
            picture[queue.front()] = Doing::writing;
            queue.pop_front();
        } else if (wasWriter) {
            std::replace(picture.begin(), picture.end(), Doing::waitingToRead, Doing::reading);
        }
    }

    Picture picture{};

private:
    std::ptrdiff_t readers() const {
        return std::count(picture.begin(), picture.end(), Doing::reading);
    }
    std::ptrdiff_t writers() const {
        return std::count(picture.begin(), picture.end(), Doing::writing);
    }

    std::deque<std::size_t> queue; ///< writers that wait
};

/// A thread that does with the lock what it is told, and says where it stands.
class Worker {
public:
    enum class Order { read, write, leave, takeAgain, end };

    explicit Worker(RWLock& underTest) : lock(underTest), thread([this] { obey(); }) {}

    void tell(Order next) {
        order = next;
        told.set();
    }

    Doing doing = Doing::nothing;
    int takenTwice = 0; ///< times that a writer got what it held already

private:
    void obey() {
        for (;;) {
            told.wait();
            switch (order) {
            case Order::read:
                doing = Doing::waitingToRead;
                lock.lockRead();
                doing = Doing::reading;
                break;
            case Order::write:
                doing = Doing::waitingToWrite;
                lock.lockWrite();
                doing = Doing::writing;
                break;
            case Order::leave:
                if (doing == Doing::writing)
                    lock.unlockWrite();
                else
                    lock.unlockRead();
                doing = Doing::nothing;
                break;
            case Order::takeAgain:
                takenTwice += (lock.lockRead() ? 1 : 0) + (lock.lockWrite() ? 1 : 0);
                break;
            case Order::end:
                return;
            }
        }
    }

    RWLock& lock;
    Order order = Order::end;
    Event told{Event::Reset::automatic};
    RunningThread thread;
};

class RWLockModel : public testing::TestWithParam<std::uint32_t> {};

TEST_P(RWLockModel, AdmitsWhomTheModelAdmits) {
    TestClock clock{TestClock::Mode::serial, GetParam()};
    RWLock lock;
    std::vector<std::unique_ptr<Worker>> workers;
    for (int i = 0; i < threadCount; ++i)
        workers.push_back(std::make_unique<Worker>(lock));

    Model model;
    std::mt19937 random{GetParam()};
    const auto settleAndCompare = [&](int step) {
        clock.advance(1); // until everybody waits for the lock or for an order
        Picture actual{};
        for (std::size_t i = 0; i < workers.size(); ++i)
            actual[i] = workers[i]->doing;
        ASSERT_EQ(actual, model.picture) << "step " << step;
    };

    for (int step = 0; step < 2000; ++step) {
        const std::size_t i = random() % workers.size();
        Worker& worker = *workers[i];
        switch (model.picture[i]) {
        case Doing::waitingToRead:
        case Doing::waitingToWrite:
            continue;
        case Doing::nothing:
            if (random() % 3 == 0) {
                model.write(i);
                worker.tell(Worker::Order::write);
            } else {
                model.read(i);
                worker.tell(Worker::Order::read);
            }
            break;
        case Doing::writing:
            if (random() % 4 == 0) {
                worker.tell(Worker::Order::takeAgain); // changes nothing
                break;
            }
            [[fallthrough]];
        case Doing::reading:
            model.leave(i);
            worker.tell(Worker::Order::leave);
            break;
        }
        settleAndCompare(step);
        if (HasFatalFailure()) std::abort(); // the workers can't be joined any more
    }

    while (model.picture != Picture{}) {
        for (std::size_t i = 0; i < workers.size(); ++i) {
            if (model.picture[i] != Doing::reading && model.picture[i] != Doing::writing) continue;
            model.leave(i);
            workers[i]->tell(Worker::Order::leave);
            settleAndCompare(-1);
        }
    }
    for (auto& worker : workers) {
        EXPECT_EQ(worker->takenTwice, 0);
        worker->tell(Worker::Order::end);
    }
}

// Whole requests overlap here: a thread may be stopped anywhere that it calls the kernel. A waiter
// that is forgotten ends in a standstill, which the clock reports.
TEST_P(RWLockModel, KeepsItsPromiseWhenRequestsOverlap) {
    TestClock clock{TestClock::Mode::serial, GetParam()};
    RWLock lock;
    int readers = 0;
    int writers = 0;
    int broken = 0;
    int passes = 0;
    {
        std::vector<std::unique_ptr<RunningThread>> threads;
        for (std::uint32_t t = 0; t < threadCount; ++t) {
            threads.push_back(std::make_unique<RunningThread>([&, t] {
                std::mt19937 random{GetParam() * 100 + t};
                for (int i = 0; i < 300; ++i, ++passes) {
                    if (random() % 3 == 0) {
                        const RWLock::WriteScope scope{lock};
                        if (readers != 0 || writers++ != 0) ++broken;
                        if (random() % 4 == 0) {
                            const RWLock::WriteScope again{lock};
                            const RWLock::ReadScope andAgain{lock};
                        }
                        kernel().sleep(static_cast<int>(random() % 2));
                        --writers;
                    } else {
                        const RWLock::ReadScope scope{lock};
                        ++readers;
                        if (writers != 0) ++broken;
                        kernel().sleep(static_cast<int>(random() % 2));
                        --readers;
                    }
                }
            }));
        }
    }
    EXPECT_EQ(broken, 0);
    EXPECT_EQ(passes, threadCount * 300);
    EXPECT_TRUE(lock.lockWrite());
    lock.unlockWrite();
}

INSTANTIATE_TEST_SUITE_P(Seeds, RWLockModel, testing::Range(1u, 21u));

} // namespace

} // namespace velorine::test
