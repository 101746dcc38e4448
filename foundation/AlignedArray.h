#pragma once

#include "foundation/Memory.h"

#include <cstddef>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

namespace velorine {

/// Numbers in one piece, 64-byte aligned for vector code. One thread at a time.
template <typename T>
class AlignedArray {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    /// `count` values whose bits are 0, in place of what was there.
    void resize(int count) {
        bytes = static_cast<std::size_t>(count) * sizeof(T);
        values.reset(static_cast<T*>(memAlloc(bytes)));
        clear();
    }

    void clear() {
        if (bytes > 0) std::memset(static_cast<void*>(values.get()), 0, bytes);
    }

    int count() const noexcept { return static_cast<int>(bytes / sizeof(T)); }
    T* data() noexcept { return values.get(); }
    const T* data() const noexcept { return values.get(); }
    T& operator[](int i) noexcept { return values.get()[i]; }
    const T& operator[](int i) const noexcept { return values.get()[i]; }

    void swap(AlignedArray& other) noexcept {
        values.swap(other.values);
        std::swap(bytes, other.bytes);
    }

private:
    std::unique_ptr<T, MemDeleter> values;
    std::size_t bytes = 0;
};

} // namespace velorine
