#include "foundation/Thread.h"

#include "foundation/CycleCounter.h"
#include "foundation/DynArray.h"
#include "foundation/ErrorReport.h"
#include "foundation/RecursiveLock.h"

#include <memory>
#include <utility>

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

/// Shared by the thread object and those that wait for the thread: the last of them closes it.
struct Thread::Handle {
    explicit Handle(Kernel::Handle thread) : native(thread) {}
    ~Handle() { kernel().close(native); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    void waitForEnd() const { kernel().waitAny({&native, 1}, Kernel::forever); }

    const Kernel::Handle native;
};

void Thread::launch(const int* priority, bool registerThread) {
    if (stop.isSet()) join();
    reap();

    Kernel::Handle created = 0;
    {
        const Lock::Scope scope{guard};
        if (handle) return; // it runs already
        created = kernel().createThread(entry, this);
        handle = std::make_shared<const Handle>(created);
        started.store(true, std::memory_order_relaxed);
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
    if (!exited.load(std::memory_order_acquire)) return;
    std::shared_ptr<const Handle> ended;
    {
        const Lock::Scope scope{guard};
        if (!exited.exchange(false, std::memory_order_acq_rel)) return;
        stop.reset();
        ended = std::move(handle);
    }
    if (!ended) return;
    ended->waitForEnd();
    if (RunningThreads* const threads = registry.load(std::memory_order_acquire))
        threads->remove(ended->native);
}

void Thread::join() {
    reap();
    std::shared_ptr<const Handle> running;
    {
        const Lock::Scope scope{guard};
        if (!handle) return;
        stop.set();
        if (isCurrent()) return;
        running = handle;
    }
    running->waitForEnd();
    reap();
}

Thread::~Thread() {
    reap();
    std::shared_ptr<const Handle> running;
    {
        const Lock::Scope scope{guard};
        running = handle;
    }
    if (!running) return;
    stop.set(); // where a thread can't be ended by force, it has to be asked
    kernel().terminateThread(running->native);
    exited.store(true, std::memory_order_release);
    reap();
}

bool Thread::isRunning() const {
    const Lock::Scope scope{guard};
    return handle && !exited.load(std::memory_order_acquire);
}

int Thread::priority() const {
    const Lock::Scope scope{guard};
    return handle ? kernel().threadPriority(handle->native) : 0;
}

void Thread::setPriority(int priority) {
    const Lock::Scope scope{guard};
    if (handle) kernel().setThreadPriority(handle->native, priority);
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
