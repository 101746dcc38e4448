#include "foundation/Thread.h"

#include "foundation/CycleCounter.h"
#include "foundation/DynArray.h"
#include "foundation/ErrorReport.h"
#include "foundation/RecursiveLock.h"

#include <memory>

namespace velorine {

namespace {

/// Never set: a boosted thread would overtake others of its priority at each wake.
constexpr bool boostAllowed = false;

struct RunningThreads {
    RecursiveLock lock{LockRank::threads};
    DynArray<Kernel::Handle> handles GUARDED_BY(lock);

    void add(Kernel::Handle handle) {
        const RecursiveLock::Scope scope{lock};
        handles.push(handle);
    }
    void remove(Kernel::Handle handle) {
        const RecursiveLock::Scope scope{lock};
        for (int i = 0; i < handles.count(); ++i) {
            if (handles[i] != handle) continue;
            handles[i] = handles[handles.count() - 1];
            handles.resize(handles.count() - 1);
            return;
        }
    }
};

std::atomic<RunningThreads*> registry{nullptr};

/// Made when it is first asked for; outlives every thread.
RunningThreads& runningThreads() {
    RunningThreads* threads = registry.load(std::memory_order_acquire);
    if (threads) return *threads;
    auto made = std::make_unique<RunningThreads>();
    if (registry.compare_exchange_strong(threads, made.get(), std::memory_order_acq_rel))
        return *made.release();
    return *threads; // another thread was first
}

/// Keeps `run` from being folded into the frame that the stack shift enlarges.
[[gnu::noinline]] std::uint32_t callRun(Thread& thread) {
    return thread.run();
}

} // namespace

void Thread::start(bool registerThread) {
    launch(nullptr, registerThread);
}

void Thread::start(int priority, bool registerThread) {
    launch(&priority, registerThread);
}

void Thread::launch(const int* priority, bool registerThread) {
    if (stop.isSet() && handle.load(std::memory_order_acquire) != 0) join();
    reap();

    Kernel::Handle created = 0;
    {
        const Lock::Scope scope{guard};
        if (handle.load(std::memory_order_relaxed) != 0) return; // it runs already
        created = kernel().createThread(entry, this);
        started.store(true, std::memory_order_relaxed);
        handle.store(created, std::memory_order_release);
    }
    if (!boostAllowed) kernel().disablePriorityBoost(created);
    if (priority) kernel().setThreadPriority(created, *priority);
    if (registerThread) runningThreads().add(created);
    kernel().resumeThread(created);
}

std::uint32_t Thread::entry(void* raw) try {
    Thread& thread = *static_cast<Thread*>(raw);
    thread.threadId.store(kernel().currentThreadId(), std::memory_order_relaxed);

    // Threads whose stacks begin at the same page offset would contend for the same cache lines.
    const std::size_t shift = (cycleCount() & 127) << 6;
    volatile char* const shifted = static_cast<volatile char*>(__builtin_alloca(shift + 16));
    *shifted = 0; // or the compiler sees that nobody needs the room
    const std::uint32_t result = callRun(thread);

    thread.threadId.store(0, std::memory_order_relaxed);
    thread.exited.store(true, std::memory_order_release);
    return result;
} catch (const char* text) {
    endWith(text);
}

void Thread::reap() {
    Kernel::Handle ended = 0;
    {
        const Lock::Scope scope{guard};
        if (!exited.exchange(false, std::memory_order_acq_rel)) return;
        stop.reset();
        ended = handle.exchange(0, std::memory_order_acq_rel);
    }
    if (ended == 0) return;
    kernel().waitAny({&ended, 1}, Kernel::forever);
    while (joiners.load(std::memory_order_acquire) > 0)
        kernel().sleep(1); // they are about to see the same
    if (RunningThreads* const threads = registry.load(std::memory_order_acquire))
        threads->remove(ended);
    kernel().close(ended);
}

void Thread::join() {
    reap();
    Kernel::Handle running = 0;
    {
        const Lock::Scope scope{guard};
        running = handle.load(std::memory_order_relaxed);
        if (running == 0) return;
        stop.set();
        if (isCurrent()) return;
        joiners.fetch_add(1, std::memory_order_relaxed);
    }
    kernel().waitAny({&running, 1}, Kernel::forever);
    joiners.fetch_sub(1, std::memory_order_release);
    reap();
}

Thread::~Thread() {
    reap();
    const Kernel::Handle running = handle.load(std::memory_order_acquire);
    if (running == 0) return;
    stop.set(); // where a thread can't be ended by force, it has to be asked
    kernel().terminateThread(running);
    exited.store(true, std::memory_order_release);
    reap();
}

int Thread::priority() const {
    const Lock::Scope scope{guard};
    const Kernel::Handle running = handle.load(std::memory_order_relaxed);
    return running != 0 ? kernel().threadPriority(running) : 0;
}

void Thread::setPriority(int priority) {
    const Lock::Scope scope{guard};
    const Kernel::Handle running = handle.load(std::memory_order_relaxed);
    if (running != 0) kernel().setThreadPriority(running, priority);
}

int Thread::registeredThreads() {
    RunningThreads& threads = runningThreads();
    const RecursiveLock::Scope scope{threads.lock};
    return threads.handles.count();
}

void Thread::forgetRegistry() noexcept {
    delete registry.exchange(nullptr, std::memory_order_acq_rel);
}

} // namespace velorine
