#pragma once

#include "foundation/Memory.h"

#include <cassert>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace velorine {

/// Capacity that a growable array of `count` elements and room for `capacity` takes for `wanted`
/// elements. Growth leaves an eighth and 32 spare; a large array that lost more than half shrinks.
constexpr int grownCapacity(int count, int capacity, int wanted) noexcept {
    if (wanted > capacity) {
        if (std::int64_t{count} * 4 < wanted) return wanted; // a jump: likely its final size
        return wanted + (wanted >> 3) + 32;
    }
    if (wanted < capacity && capacity > 256 && wanted < capacity / 2) return wanted + (wanted >> 2);
    return capacity;
}

/// Growable array for elements that may be moved as bytes. One thread at a time.
template <typename T>
class DynArray {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    DynArray() = default;
    DynArray(DynArray&& other) noexcept
        : elements(std::exchange(other.elements, nullptr)), used(std::exchange(other.used, 0)),
          room(std::exchange(other.room, 0)) {}
    DynArray& operator=(DynArray&& other) noexcept {
        std::swap(elements, other.elements);
        std::swap(used, other.used);
        std::swap(room, other.room);
        return *this;
    }
    ~DynArray() { memFree(elements); }

    int count() const noexcept { return used; }
    int capacity() const noexcept { return room; }
    bool empty() const noexcept { return used == 0; }

    T* data() noexcept { return elements; }
    const T* data() const noexcept { return elements; }
    T* begin() noexcept { return elements; }
    T* end() noexcept { return elements + used; }
    const T* begin() const noexcept { return elements; }
    const T* end() const noexcept { return elements + used; }

    T& operator[](int i) noexcept {
        assert(i >= 0 && i < used);
        return elements[i];
    }
    const T& operator[](int i) const noexcept {
        assert(i >= 0 && i < used);
        return elements[i];
    }

    /// Room for `wanted` elements, by the rule of `grownCapacity`; never less than there are.
    void reserve(int wanted) { fit(wanted < used ? used : wanted); }

    /// New elements are value-initialised.
    void resize(int wanted) {
        fit(wanted);
        for (int i = used; i < wanted; ++i)
            elements[i] = T{};
        used = wanted;
    }

    void push(const T& element) {
        const T copy = element;          // it may be one of ours, about to move
        if (used == room) fit(used + 1); // room that was reserved stays
        elements[used++] = copy;
    }

private:
    void fit(int wanted) {
        const int newRoom = grownCapacity(used, room, wanted);
        if (newRoom == room) return;
        elements =
            static_cast<T*>(memRealloc(elements, static_cast<std::size_t>(newRoom) * sizeof(T)));
        room = newRoom;
    }

    T* elements = nullptr;
    int used = 0;
    int room = 0;
};

} // namespace velorine
