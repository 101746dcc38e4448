#pragma once

#include "foundation/FlaggedEvent.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace velorine {

/// A thread of the system, as an object that can be started again after it ended.
///
/// A derived class joins in its own destructor: when this one runs, `run` is already gone. Any
/// thread may call any operation; several that start, join or reap at once get along.
class Thread {
public:
    Thread() = default;
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// Body of the thread. It ends soon after `stop` was set. A `fatal` text that leaves it is
    /// shown and ends the process.
    virtual std::uint32_t run() = 0;

    /// Starts the thread, at normal priority or at `priority`. One that was asked to stop and still
    /// runs is joined first; one that has ended is reaped; one that runs on is left alone.
    ///
    /// @param registerThread  keep the handle in the process-wide list of running threads
    void start(bool registerThread);
    void start(int priority, bool registerThread);

    /// Asks the thread to end and waits until it has. From the thread itself: only asks.
    void join();

    /// Gives back a thread that has ended. Two callers at once are fine: one of them closes it.
    void reap();

    bool isRunning() const;
    bool isCurrent() const {
        return threadId.load(std::memory_order_relaxed) == kernel().currentThreadId();
    }

    /// Priority of the running thread; 0 when there is none.
    int priority() const;
    void setPriority(int priority);

    FlaggedEvent stop; ///< set: the thread shall end

    /// Threads in the process-wide list.
    static int registeredThreads();

    /// Gives up that list, whose lock belongs to the kernel in force. For a change of kernels,
    /// while no thread runs.
    static void forgetRegistry() noexcept;

private:
    struct Handle;

    static std::uint32_t entry(void* raw);
    void launch(const int* priority, bool registerThread);

    mutable Lock guard{LockRank::threads};
    std::shared_ptr<const Handle> handle GUARDED_BY(guard); ///< null: none
    std::atomic<std::uint32_t> threadId{0};                 ///< 0 when not running
    std::atomic<bool> exited{false};  ///< set by the thread as it ends, until it is reaped
    std::atomic<bool> started{false}; ///< has been started at least once
};

} // namespace velorine
