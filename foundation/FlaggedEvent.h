#pragma once

#include "foundation/Lock.h"

#include <array>
#include <atomic>
#include <cstddef>

namespace velorine {

/// Manual-reset event with a cheap test: a thread that finds it set makes no system call. Any
/// thread. A waiter may find it set before `set` has returned: it has to outlive that call.
class FlaggedEvent {
public:
    void set() {
        if (flag.load(std::memory_order_acquire)) return;
        const Lock::Scope scope{lock};
        flag.store(true, std::memory_order_release);
        event.set();
    }

    void reset() {
        if (!flag.load(std::memory_order_acquire)) return;
        const Lock::Scope scope{lock};
        flag.store(false, std::memory_order_release);
        event.reset();
    }

    bool isSet() const noexcept { return flag.load(std::memory_order_acquire); }

    /// @return false when the time ran out
    bool wait(int timeoutMs = Kernel::forever) {
        return isSet() || event.wait(timeoutMs) || isSet();
    }

    Kernel::Handle native() const noexcept { return event.native(); }

private:
    std::atomic<bool> flag{false};
    Lock lock{LockRank::primitive};
    Event event{Event::Reset::manual};
};

/// Waits until one of `events` is set and returns its index, of several the first in the order
/// given, or `Kernel::timedOut`.
template <typename... Events>
int waitForFirst(int timeoutMs, const Events&... events) {
    const auto firstSet = [&] {
        const std::array<bool, sizeof...(events)> flags{events.isSet()...};
        for (std::size_t i = 0; i < flags.size(); ++i)
            if (flags[i]) return static_cast<int>(i);
        return Kernel::timedOut;
    };
    const int set = firstSet();
    if (set != Kernel::timedOut) return set;
    const std::array<Kernel::Handle, sizeof...(events)> handles{events.native()...};
    const int woken = kernel().waitAny(handles, timeoutMs);
    return woken != Kernel::timedOut ? woken : firstSet();
}

} // namespace velorine
