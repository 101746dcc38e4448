#pragma once

#include "foundation/Kernel.h"

#include <array>
#include <cassert>
#include <cstddef>
#include <limits>
#include <span>

namespace velorine {

/// Events, semaphores and thread ends as plain bookkeeping, for a kernel that has none of its own.
///
/// The table knows who waits for what and hands a signal straight to the waiter that gets it; how a
/// waiter blocks and is woken is the kernel's business, which also guards all calls by one mutex.
class SignalTable {
public:
    static constexpr std::size_t maxHandles = 16; ///< of one wait
    static constexpr int semaphoreMaximum = std::numeric_limits<int>::max();

    enum class Kind { autoEvent, manualEvent, semaphore, thread };

    struct Waiter;
    struct Signal;

    /// A waiter's place in the queue of one signal.
    struct Place {
        Waiter* waiter = nullptr;
        Signal* signal = nullptr;
        Place* before = nullptr;
        Place* behind = nullptr;
    };

    struct Signal {
        explicit Signal(Kind what) : kind(what) {}
        ~Signal() { assert(!first && "given back while a thread waits for it"); }
        Signal(const Signal&) = delete;
        Signal& operator=(const Signal&) = delete;

        Kind kind;
        int count = 0; ///< above 0: set; only a semaphore counts above 1
        Place* first = nullptr;
        Place* last = nullptr;
    };

    /// One blocked thread. It lives on that thread's stack, so that a wait takes nothing from the
    /// heap.
    struct Waiter {
        std::array<Place, maxHandles> places{};
        std::size_t placeCount = 0;
        int result = Kernel::timedOut;
        bool done = false;
    };

    static Signal* from(Kernel::Handle handle) { return reinterpret_cast<Signal*>(handle); }
    static Kernel::Handle handleOf(Signal* signal) {
        return reinterpret_cast<Kernel::Handle>(signal);
    }

    /// Takes the first set signal of `handles`: its index, or `timedOut` when none is set.
    static int take(std::span<const Kernel::Handle> handles);

    /// Queues `waiter` behind those that wait for `handles` already.
    static void enqueue(Waiter& waiter, std::span<const Kernel::Handle> handles);

    /// Takes `waiter` out of all queues, where it stands for a wait that timed out.
    static void withdraw(Waiter& waiter);

    /// Raises `signal` by `count` and hands it to waiters; `wake(Waiter&)` is called for each that
    /// may go on. An event stays at 1; a semaphore that would pass its maximum stays as it is.
    template <typename Wake>
    static void raise(Signal& signal, int count, Wake&& wake) {
        if (signal.kind != Kind::semaphore)
            signal.count = 1;
        else if (count <= semaphoreMaximum - signal.count)
            signal.count += count;
        while (signal.count > 0 && signal.first) {
            Waiter& waiter = *signal.first->waiter;
            satisfy(waiter, signal);
            wake(waiter);
        }
    }

private:
    static void satisfy(Waiter& waiter, Signal& signal);
    static void consume(Signal& signal);
};

} // namespace velorine
