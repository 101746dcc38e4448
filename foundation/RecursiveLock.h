#pragma once

#include "foundation/Event.h"
#include "foundation/LockRank.h"
#include "foundation/ThreadAnnotations.h"

#include <atomic>
#include <cstdint>

namespace velorine {

/// Counted lock with an owner: a scope inside a scope of the same thread takes nothing, so there is
/// no nesting counter, and the outermost scope gives the lock back. Any thread.
class CAPABILITY("lock") RecursiveLock {
public:
    explicit RecursiveLock(LockRank order = LockRank::leaf) : rank(order) {}

    /// True while the calling thread holds the lock.
    bool heldByCaller() const noexcept {
        // Only the caller itself can have written its own id, so a stale value can't equal it.
        return owner.load(std::memory_order_relaxed) == kernel().currentThreadId();
    }

    /// Threads in the lock or waiting for it.
    int users() const noexcept { return count.load(std::memory_order_relaxed); }

    /// Holds the lock from construction on. May be emptied, or moved on to another lock.
    class SCOPED_CAPABILITY Scope {
    public:
        Scope() NO_THREAD_SAFETY_ANALYSIS = default;
        explicit Scope(RecursiveLock& lock) ACQUIRE(lock) NO_THREAD_SAFETY_ANALYSIS { take(lock); }
        ~Scope() RELEASE() NO_THREAD_SAFETY_ANALYSIS { giveBack(); }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

        /// Gives back what is held, then takes `lock`; a scope that holds it already keeps it.
        void moveTo(RecursiveLock& lock) NO_THREAD_SAFETY_ANALYSIS {
            if (held == &lock) return;
            giveBack();
            take(lock);
        }

        void giveBack() noexcept NO_THREAD_SAFETY_ANALYSIS {
            if (!held) return;
            RecursiveLock* const lock = held;
            held = nullptr;
            lock->release();
        }

    private:
        void take(RecursiveLock& lock) NO_THREAD_SAFETY_ANALYSIS {
            if (lock.heldByCaller()) return;
            lock.acquire();
            held = &lock;
        }

        RecursiveLock* held = nullptr; ///< null: nothing to give back
    };

private:
    void acquire() {
        noteLockTaken(rank);
        if (count.fetch_add(1, std::memory_order_acquire) != 0) event.wait();
        owner.store(kernel().currentThreadId(), std::memory_order_relaxed);
    }
    void release() noexcept {
        noteLockGiven(rank); // now: once the count is down, whoever comes next may end the lock
        owner.store(0, std::memory_order_relaxed);
        if (count.fetch_sub(1, std::memory_order_release) > 1) event.set();
    }

    std::atomic<std::int32_t> count{0};
    Event event{Event::Reset::automatic};
    std::atomic<std::uint32_t> owner{0}; ///< thread id, 0 when free
    const LockRank rank;
};

} // namespace velorine
