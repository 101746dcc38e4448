#include "foundation/Thread.h"

#include "foundation/CycleCounter.h"
#include "foundation/DynArray.h"
#include "foundation/RecursiveLock.h"

namespace velorine {

namespace {

/// Never set: a boosted thread would overtake others of its priority at each wake.
constexpr bool boostAllowed = false;

struct RunningThreads {
    RecursiveLock lock{LockRank::threads};
    DynArray<Kernel::Handle> handles; ///< guarded by lock

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

RunningThreads& runningThreads() {
    static RunningThreads* const threads = new RunningThreads; // outlives every thread
    return *threads;
}

/// Keeps `run` from being folded into the frame that the stack shift enlarges.
[[gnu::noinline]] std::uint32_t callRun(Thread& thread, volatile char*) {
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
    if (handle.load(std::memory_order_acquire) != 0) return; // it runs already

    const Kernel::Handle created = kernel().createThread(entry, this);
    started.store(true, std::memory_order_relaxed);
    handle.store(created, std::memory_order_release);
    if (!boostAllowed) kernel().disablePriorityBoost(created);
    if (priority) kernel().setThreadPriority(created, *priority);
    if (registerThread) runningThreads().add(created);
    kernel().resumeThread(created);
}

std::uint32_t Thread::entry(void* raw) {
    Thread& thread = *static_cast<Thread*>(raw);
    thread.threadId.store(kernel().currentThreadId(), std::memory_order_relaxed);

    // Threads whose stacks begin at the same page offset would contend for the same cache lines.
    const std::size_t shift = (cycleCount() & 127) << 6;
    volatile char* const shifted = static_cast<volatile char*>(__builtin_alloca(shift + 16));
    const std::uint32_t result = callRun(thread, shifted);

    thread.threadId.store(0, std::memory_order_relaxed);
    thread.exited.store(true, std::memory_order_release);
    return result;
}

void Thread::reap() {
    if (!exited.exchange(false, std::memory_order_acq_rel)) return;
    stop.reset();
    const Kernel::Handle ended = handle.exchange(0, std::memory_order_acq_rel);
    if (ended == 0) return;
    kernel().waitAny({&ended, 1}, Kernel::forever);
    runningThreads().remove(ended);
    kernel().close(ended);
}

void Thread::join() {
    reap();
    if (handle.load(std::memory_order_acquire) == 0) return;
    stop.set();
    reap();
    const Kernel::Handle running = handle.load(std::memory_order_acquire);
    if (running == 0 || isCurrent()) return;
    if (kernel().waitAny({&running, 1}, Kernel::forever) == 0) reap();
}

Thread::~Thread() {
    reap();
    const Kernel::Handle running = handle.load(std::memory_order_acquire);
    if (running == 0) return;
    kernel().terminateThread(running);
    exited.store(true, std::memory_order_release);
    reap();
}

int Thread::priority() const {
    const Kernel::Handle running = handle.load(std::memory_order_acquire);
    return running != 0 ? kernel().threadPriority(running) : 0;
}

void Thread::setPriority(int priority) {
    const Kernel::Handle running = handle.load(std::memory_order_acquire);
    if (running != 0) kernel().setThreadPriority(running, priority);
}

int Thread::registeredThreads() {
    RunningThreads& threads = runningThreads();
    const RecursiveLock::Scope scope{threads.lock};
    return threads.handles.count();
}

} // namespace velorine
