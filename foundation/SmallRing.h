#pragma once

#include "foundation/Memory.h"

#include <cassert>
#include <new>
#include <type_traits>

namespace velorine {

/// Circular deque for records that may be moved as bytes. One thread at a time.
template <typename T>
class SmallRing {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    SmallRing() = default;
    ~SmallRing() { memFree(base); }
    SmallRing(const SmallRing&) = delete;
    SmallRing& operator=(const SmallRing&) = delete;

    int count() const noexcept { return used; }
    int capacity() const noexcept { return room; }
    bool empty() const noexcept { return used == 0; }

    T& at(int i) noexcept { return base[slot(i)]; }
    const T& at(int i) const noexcept { return base[slot(i)]; }
    T& newest() noexcept { return at(used - 1); }
    const T& newest() const noexcept { return at(used - 1); }

    /// Capacity 6 first; when full, twice the count and 6.
    void push(const T& record) {
        const T copy = record; // it may be one of ours, about to move
        if (used == room) grow(room == 0 ? 6 : 2 * used + 6);
        ++used;
        at(used - 1) = copy;
    }

    /// Drops the oldest record.
    void pop() noexcept {
        assert(used > 0);
        if (++head == room) head = 0;
        --used;
    }

    /// Drops the newest record.
    void popNewest() noexcept {
        assert(used > 0);
        --used;
    }

    void clear() noexcept { used = 0; }

private:
    int slot(int i) const noexcept {
        assert(i >= 0 && i < used);
        const int sum = head + i;
        return sum >= room ? sum - room : sum;
    }

    void grow(int newRoom) {
        T* const grown = static_cast<T*>(memAlloc(static_cast<std::size_t>(newRoom) * sizeof(T)));
        for (int i = 0; i < used; ++i)
            new (grown + i) T(at(i));
        memFree(base);
        base = grown;
        room = newRoom;
        head = 0;
    }

    T* base = nullptr;
    int room = 0;
    int used = 0;
    int head = 0;
};

} // namespace velorine
