#pragma once

#include <cstddef>
#include <cstdint>

namespace velorine {

/// General allocation of the system: 64-byte aligned, and never empty. Where the heap has nothing,
/// the caller stands until it has (tried every 100 ms). Any thread.
///
/// Freed blocks are kept by size and handed out again, so that the audio path, once it has warmed
/// up, doesn't enter the general heap.

/// @param size  bytes; 0 yields null. Above 2^27 - 1 the user is warned first.
void* memAlloc(std::size_t size);

/// Moves a block to another size; null allocates, size 0 frees and yields null.
void* memRealloc(void* block, std::size_t size);

/// Null is fine.
void memFree(void* block) noexcept;

/// Bytes from which on an allocation warns the user.
inline constexpr std::size_t bigAllocation = 0x8000000;

/// Where `memAlloc` gets its blocks. Any thread.
class HeapSource {
public:
    virtual ~HeapSource() = default;
    virtual void* allocate(std::size_t bytes) = 0; ///< as aligned as `malloc`; null: none left
    virtual void release(void* block) = 0;

    /// Puts `replacement` in the place of the general heap; null puts that back. Drops the blocks
    /// that are kept for reuse, so that none crosses over. Only while no other thread allocates,
    /// and while no block of the source before is in use, unless that took it from `malloc` too.
    static void install(HeapSource* replacement) noexcept;
};

/// Deleter for `std::unique_ptr` over `memAlloc`.
struct MemDeleter {
    void operator()(void* block) const noexcept { memFree(block); }
};

} // namespace velorine
