#pragma once

#include "foundation/Kernel.h"
#include "foundation/SignalTable.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

namespace velorine::test {

/// A kernel on which time only passes while everybody waits.
///
/// Every wait, lock and sleep of the system comes here. Once all threads are blocked, time jumps to
/// the earliest deadline, so hours of playback take seconds, and all whose time has come then may
/// run. In `serial` one thread runs at a time and the run is the same each time; a seed lets the
/// order of the threads vary. In `parallel` the threads really run beside each other, for the race
/// detector.
///
/// Only what goes through the kernel is seen: a thread that waits by reading a variable again and
/// again stops the time, unless it sleeps in between, be it for 0 ms.
///
/// The thread that makes the clock takes part, as do all threads made through it. When everybody
/// waits without limit, nothing can ever happen again: the clock tells who waits, and aborts.
class TestClock : public Kernel {
public:
    enum class Mode { serial, parallel };

    explicit TestClock(Mode mode = Mode::serial, std::uint32_t seed = 0);
    ~TestClock() override;
    TestClock(const TestClock&) = delete;
    TestClock& operator=(const TestClock&) = delete;

    std::int64_t ticks(); ///< 100 ns since the clock was made

    /// Lets `ms` pass for the calling thread.
    void advance(int ms) { sleep(ms); }

    int liveObjects(); ///< events, semaphores and threads that were made and not given back

    Handle createEvent(bool manualReset) override;
    void setEvent(Handle event) override;
    void resetEvent(Handle event) override;
    Handle createSemaphore() override;
    void releaseSemaphore(Handle semaphore, int count) override;
    int waitAny(std::span<const Handle> handles, int timeoutMs) override;
    void close(Handle handle) override;
    Handle createThread(ThreadEntry entry, void* context) override;
    void disablePriorityBoost(Handle) override {}
    void resumeThread(Handle thread) override;
    void terminateThread(Handle thread) override;
    void setThreadPriority(Handle thread, int priority) override;
    int threadPriority(Handle thread) override;
    void setCurrentPriority(int priority) override;
    int currentPriority() override;
    std::uint32_t currentThreadId() override;
    void sleep(int ms) override;
    std::int64_t counterFrequency() override { return frequency; }
    std::int64_t counter() override;
    std::uint32_t mediaTime() override;
    std::uint32_t tickCount() override;
    unsigned shortestTimerPeriod() override { return shortestPeriod; }
    bool beginTimerPeriod(unsigned) override {
        if (grantsTimerPeriods) ++timerPeriods;
        return grantsTimerPeriods;
    }
    void endTimerPeriod(unsigned) override { --timerPeriods; }

    /// Where the counter stands at the start: far from 0, as on a machine that has run for days.
    static constexpr std::int64_t counterStart = 36'000'000'000'000;

    // The machine; set before threads are made.
    std::int64_t frequency = 10'000'000; ///< of the counter, Hz; 0: there is none
    std::uint32_t tickStart = 0;         ///< of the 32-bit readings, near their wrap if wanted
    unsigned shortestPeriod = 1;         ///< ms; 0: can't be asked
    bool grantsTimerPeriods = true;

    std::atomic<int> timerPeriods{0}; ///< begun and not ended

private:
    struct Task;
    using Guard = std::unique_lock<std::mutex>;

    Task& self();
    static Task& taskOf(Handle thread);
    void raise(SignalTable::Signal& signal, int count);
    void makeReady(Task& task);
    void block(Task& task, Guard& guard);
    void schedule();
    void run(Task& task);
    Task* earliest();
    bool advanceToDeadline();
    [[noreturn]] void reportDeadlock();
    void maybePreempt();
    void addTask(Task& task);
    void removeTask(Task& task);

    const Mode mode;
    std::mutex mutex;
    std::mt19937 random;
    const bool shuffled;
    std::int64_t nowTicks = 0; ///< guarded by mutex, as all below
    std::int64_t sequence = 0;
    std::uint32_t lastId = 0;
    int running = 0;
    int objects = 0;
    std::vector<Task*> tasks;
    std::vector<Task*> ready;
    Task* main = nullptr;
};

} // namespace velorine::test
