#pragma once

#include "foundation/Event.h"
#include "foundation/LockRank.h"
#include "foundation/ThreadAnnotations.h"

#include <atomic>
#include <cstdint>

namespace velorine {

/// Counted lock (a benaphore): taking and giving it back uncontended is one atomic operation each,
/// with no system call. Not recursive. Any thread.
class CAPABILITY("lock") Lock {
public:
    explicit Lock(LockRank order = LockRank::leaf) : rank(order) {}

    void lock() ACQUIRE() {
        noteLockTaken(rank);
        if (count.fetch_add(1, std::memory_order_acquire) != 0) event.wait();
    }
    void unlock() RELEASE() {
        noteLockGiven(rank); // now: once the count is down, whoever comes next may end the lock
        if (count.fetch_sub(1, std::memory_order_release) > 1) event.set();
    }

    /// Threads in the lock or waiting for it.
    int users() const noexcept { return count.load(std::memory_order_relaxed); }

    class SCOPED_CAPABILITY Scope {
    public:
        explicit Scope(Lock& lock) ACQUIRE(lock) : held(lock) { held.lock(); }
        ~Scope() RELEASE() { held.unlock(); }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        Lock& held;
    };

private:
    std::atomic<std::int32_t> count{0};
    Event event{Event::Reset::automatic};
    const LockRank rank;
};

} // namespace velorine
