#include "foundation/ErrorReport.h"
#include "foundation/SignalTable.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cassert>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace velorine {

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<std::uint32_t> threadCount{0};

/// The condition variables that threads sleep on. One goes to the next thread when its own ends and
/// is never deleted: a thread that wakes another does so without any lock, maybe a little late.
class SleepingPlaces {
public:
    std::condition_variable* take() {
        const std::lock_guard guard{mutex};
        if (free.empty()) return new std::condition_variable;
        std::condition_variable* const place = free.back();
        free.pop_back();
        return place;
    }
    void giveBack(std::condition_variable* place) {
        const std::lock_guard guard{mutex};
        free.push_back(place);
    }

private:
    std::mutex mutex;
    std::vector<std::condition_variable*> free;
};

SleepingPlaces& sleepingPlaces() {
    static SleepingPlaces* const places = new SleepingPlaces; // outlives every thread
    return *places;
}

/// The calling thread's, kept for as long as it runs, as waits are frequent.
std::condition_variable& ownCondition() {
    struct Holder {
        std::condition_variable* const place = sleepingPlaces().take();
        ~Holder() { sleepingPlaces().giveBack(place); }
    };
    thread_local Holder holder;
    return *holder.place;
}

/// What a thread's priority means here. Idle isn't applied: without privileges the nice value could
/// not be lowered again.
int niceFor(int priority) {
    if (priority >= 15) return -11;
    if (priority >= 2) return -5;
    return 0;
}

/// Gives thread `tid` the nice value for `priority`, unless `applied` says that it has it.
void applyNice(pid_t tid, int priority, int& applied) {
    if (priority <= -15 || tid == 0 || niceFor(priority) == applied) return;
    applied = niceFor(priority);
    setpriority(PRIO_PROCESS, static_cast<id_t>(tid), applied); // refusal is no error
}

constexpr int niceUnknown = 100; ///< of a thread whose nice value nobody has set yet

/// A thread's priority as it was set, and the thread that gets the nice value for it: both change
/// together, or two that set it at once would leave the one's value and the other's nice.
class ThreadPriority {
public:
    void set(int priority) {
        const std::lock_guard guard{mutex};
        value = priority;
        applyNice(tid, value, nice);
    }
    int get() {
        const std::lock_guard guard{mutex};
        return value;
    }

    /// The calling thread is the one. It has the nice value of the thread that made it until now.
    void attach() {
        const std::lock_guard guard{mutex};
        tid = gettid();
        applyNice(tid, value, nice);
    }

    /// The thread ends: its id may soon be another's.
    void detach() {
        const std::lock_guard guard{mutex};
        tid = 0;
    }

private:
    std::mutex mutex; // a leaf, and held for one system call
    int value = 0;
    int nice = niceUnknown;
    pid_t tid = 0; ///< 0: no thread yet, or no more
};

struct ThreadRecord : SignalTable::Signal {
    ThreadRecord(Kernel::ThreadEntry threadEntry, void* entryContext)
        : Signal(SignalTable::Kind::thread), entry(threadEntry), context(entryContext) {}

    Kernel::ThreadEntry entry;
    void* context;
    std::thread thread;
    SignalTable::Signal gate{SignalTable::Kind::manualEvent};
    ThreadPriority priority;
};

/// Record of the calling thread if the system made it, and the priority of one that it didn't.
thread_local ThreadRecord* ownRecord = nullptr;
thread_local int foreignPriority = 0;
thread_local int foreignNice = niceUnknown;

/// Linux, on one mutex and a condition variable a thread.
class PosixKernel final : public Kernel {
public:
    Handle createEvent(bool manualReset) override {
        return SignalTable::handleOf(new SignalTable::Signal(
            manualReset ? SignalTable::Kind::manualEvent : SignalTable::Kind::autoEvent));
    }

    void setEvent(Handle event) override { raise(*SignalTable::from(event), 1); }

    void resetEvent(Handle event) override {
        const std::lock_guard guard{mutex};
        SignalTable::from(event)->count = 0;
    }

    Handle createSemaphore() override {
        return SignalTable::handleOf(new SignalTable::Signal(SignalTable::Kind::semaphore));
    }

    void releaseSemaphore(Handle semaphore, int count) override {
        raise(*SignalTable::from(semaphore), count);
    }

    int waitAny(std::span<const Handle> handles, int timeoutMs) override {
        std::unique_lock guard{mutex};
        const int taken = SignalTable::take(handles);
        if (taken != timedOut || timeoutMs == 0) return taken;

        ConditionWaiter waiter{ownCondition()};
        SignalTable::enqueue(waiter, handles);
        if (timeoutMs < 0) {
            waiter.condition.wait(guard, [&] { return waiter.done; });
            return waiter.result;
        }
        const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
        if (!waiter.condition.wait_until(guard, deadline, [&] { return waiter.done; }))
            SignalTable::withdraw(waiter);
        return waiter.result;
    }

    void close(Handle handle) override {
        SignalTable::Signal* signal = SignalTable::from(handle);
        if (signal->kind != SignalTable::Kind::thread) {
            delete signal;
            return;
        }
        std::unique_ptr<ThreadRecord> record{static_cast<ThreadRecord*>(signal)};
        record->thread.join();
    }

    Handle createThread(ThreadEntry entry, void* context) override {
        auto record = std::make_unique<ThreadRecord>(entry, context);
        try {
            record->thread = std::thread{[this, raw = record.get()] { runThread(*raw); }};
        } catch (const std::system_error&) {
            endWith("The system refuses another thread: end some programs and start again");
        }
        return SignalTable::handleOf(record.release());
    }

    void disablePriorityBoost(Handle) override {} // there is none here

    void resumeThread(Handle thread) override { raise(recordOf(thread).gate, 1); }

    void terminateThread(Handle thread) override {
        assert(false && "a thread has to be joined by its own class");
        const Handle handles[] = {thread};
        waitAny(handles, forever);
    }

    void setThreadPriority(Handle thread, int priority) override {
        recordOf(thread).priority.set(priority);
    }

    int threadPriority(Handle thread) override { return recordOf(thread).priority.get(); }

    void setCurrentPriority(int priority) override {
        if (ownRecord) {
            ownRecord->priority.set(priority);
        } else {
            thread_local const pid_t ownId = gettid();
            foreignPriority = priority;
            applyNice(ownId, priority, foreignNice);
        }
    }

    int currentPriority() override {
        return ownRecord ? ownRecord->priority.get() : foreignPriority;
    }

    std::uint32_t currentThreadId() override {
        thread_local const std::uint32_t id =
            threadCount.fetch_add(1, std::memory_order_relaxed) + 1;
        return id;
    }

    void sleep(int ms) override {
        if (ms <= 0)
            std::this_thread::yield();
        else
            std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    }

    std::int64_t counterFrequency() override { return 1'000'000'000; }

    std::int64_t counter() override {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
    }

    std::uint32_t mediaTime() override { return static_cast<std::uint32_t>(counter() / 1'000'000); }
    std::uint32_t tickCount() override { return mediaTime(); }

    unsigned shortestTimerPeriod() override { return 1; }
    bool beginTimerPeriod(unsigned) override { return true; } // timers are fine-grained anyway
    void endTimerPeriod(unsigned) override {}

private:
    struct ConditionWaiter : SignalTable::Waiter {
        explicit ConditionWaiter(std::condition_variable& own) : condition(own) {}
        std::condition_variable& condition;
    };

    static ThreadRecord& recordOf(Handle thread) {
        return static_cast<ThreadRecord&>(*SignalTable::from(thread));
    }

    void raise(SignalTable::Signal& signal, int count) {
        // A thread that is woken under the mutex would block on it at once.
        std::array<std::condition_variable*, 8> woken{};
        std::size_t wokenCount = 0;
        {
            const std::lock_guard guard{mutex};
            SignalTable::raise(signal, count, [&](SignalTable::Waiter& waiter) {
                std::condition_variable& place = static_cast<ConditionWaiter&>(waiter).condition;
                if (wokenCount < woken.size())
                    woken[wokenCount++] = &place;
                else
                    place.notify_one();
            });
        }
        for (std::size_t i = 0; i < wokenCount; ++i)
            woken[i]->notify_one();
    }

    void runThread(ThreadRecord& record) {
        ownRecord = &record;
        const Handle gate[] = {SignalTable::handleOf(&record.gate)};
        waitAny(gate, forever);
        record.priority.attach();
        record.entry(record.context);
        record.priority.detach();
        raise(record, 1);
    }

    std::mutex mutex; ///< guards every signal; held for a few instructions, never across a wait
};

} // namespace

Kernel& Kernel::native() {
    static PosixKernel* const instance = new PosixKernel; // outlives every static object
    return *instance;
}

} // namespace velorine
