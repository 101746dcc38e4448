#pragma once

#include "foundation/FxTime.h"

#include <cstdint>
#include <span>

namespace velorine {

/// What the system needs of the machine in order to wait, to wake, to run threads and to tell time.
///
/// Every block of the system goes through this seam, and so does every reading of time: a test puts
/// a discrete-event clock in its place and plays hours in seconds. All operations may be called
/// from any thread; none of them fails visibly.
class Kernel {
public:
    using Handle = std::uintptr_t; ///< of an event, a semaphore or a thread; 0 is none
    using ThreadEntry = std::uint32_t (*)(void* context);

    static constexpr int forever = -1;  ///< time-out that never comes
    static constexpr int timedOut = -1; ///< answer of a wait

    virtual ~Kernel() = default;

    virtual Handle createEvent(bool manualReset) = 0;
    virtual void setEvent(Handle event) = 0;
    virtual void resetEvent(Handle event) = 0;

    /// Counted semaphore, at 0; `releaseSemaphore` lets `count` waiters pass, or does nothing where
    /// the count would pass 2^31 - 1.
    virtual Handle createSemaphore() = 0;
    virtual void releaseSemaphore(Handle semaphore, int count) = 0;

    /// Waits until one of `handles` is set, takes it (auto-reset event, semaphore) and returns its
    /// index; of several the first in the order given. A thread handle is set once the thread
    /// ended.
    ///
    /// @param timeoutMs  0 or above, or `forever`
    /// @return index into `handles`, or `timedOut`
    virtual int waitAny(std::span<const Handle> handles, int timeoutMs) = 0;

    /// Gives back an event, a semaphore, or an ended thread.
    virtual void close(Handle handle) = 0;

    /// A thread that stands still until `resumeThread`. Null is never returned: a thread that the
    /// machine refuses ends the process.
    virtual Handle createThread(ThreadEntry entry, void* context) = 0;
    virtual void disablePriorityBoost(Handle thread) = 0;
    virtual void resumeThread(Handle thread) = 0;

    /// Ends a thread that no longer can be asked to end. A last resort, and a bug where it happens.
    virtual void terminateThread(Handle thread) = 0;

    /// Priorities are the values -15 idle, 0 normal, 2 highest, 15 time critical, and those
    /// between. What was set can be read back whether or not the machine grants it.
    virtual void setThreadPriority(Handle thread, int priority) = 0;
    virtual int threadPriority(Handle thread) = 0;
    virtual void setCurrentPriority(int priority) = 0;
    virtual int currentPriority() = 0;

    virtual std::uint32_t currentThreadId() = 0; ///< never 0

    /// Stands still for `ms`; 0 gives the rest of the time slice to others.
    virtual void sleep(int ms) = 0;

    /// High-resolution counter and its ticks a second; a frequency of 0 says that there is none.
    virtual std::int64_t counterFrequency() = 0;
    virtual std::int64_t counter() = 0;

    /// Milliseconds of the multimedia timer and of the tick count; both wrap at 2^32.
    virtual std::uint32_t mediaTime() = 0;
    virtual std::uint32_t tickCount() = 0;

    /// Shortest period in ms of the multimedia timer, 0 when that can't be asked.
    virtual unsigned shortestTimerPeriod() = 0;
    virtual bool beginTimerPeriod(unsigned ms) = 0;
    virtual void endTimerPeriod(unsigned ms) = 0;

    /// The machine's own kernel.
    static Kernel& native();

    /// Puts `replacement` in the place of the native kernel, null puts that back. Only while no
    /// thread of the system runs and none of its objects exists.
    static void install(Kernel* replacement) noexcept;
};

/// The kernel in force.
Kernel& kernel() noexcept;

} // namespace velorine
