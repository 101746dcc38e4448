#include "foundation/Memory.h"

#include "foundation/ErrorReport.h"
#include "foundation/Kernel.h"

#include <array>
#include <atomic>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <mutex>

#ifndef VELORINE_KEEP_FREED_BLOCKS
#define VELORINE_KEEP_FREED_BLOCKS 1
#endif

namespace velorine {

namespace {

constexpr std::size_t alignment = 64;
constexpr int retryMs = 100;

/// Stands in the two words before a block; the heap's own alignment leaves room for both.
struct BlockHeader {
    std::size_t size; ///< bytes that the block holds
    void* raw;        ///< what the heap gave
};
static_assert(sizeof(BlockHeader) == 2 * sizeof(void*));

BlockHeader& headerOf(void* block) {
    return static_cast<BlockHeader*>(block)[-1];
}

std::atomic<HeapSource*> installed{nullptr};

void* heapAllocate(std::size_t bytes) {
    HeapSource* const source = installed.load(std::memory_order_acquire);
    return source ? source->allocate(bytes) : std::malloc(bytes);
}

void heapRelease(void* raw) {
    HeapSource* const source = installed.load(std::memory_order_acquire);
    if (source)
        source->release(raw);
    else
        std::free(raw);
}

/// Freed blocks, by size class: four classes to each power of two, from 64 bytes to 4 MiB.
class KeptBlocks {
public:
    static constexpr bool active = VELORINE_KEEP_FREED_BLOCKS != 0;

    /// `size` rounded up to the size of its class; a size without a class stays.
    static std::size_t classSize(std::size_t size) {
        if (!active || size > largest) return size;
        if (size <= smallest) return smallest;
        const std::size_t step = std::bit_floor(size - 1) / 4;
        return (size + step - 1) & ~(step - 1); // a power of two
    }

    void* take(std::size_t size) {
        if (!active || size > largest) return nullptr;
        Class& kept = classes[indexOf(size)];
        const std::lock_guard guard{mutex};
        if (kept.count == 0) return nullptr;
        return kept.blocks[--kept.count];
    }

    bool keep(void* block, std::size_t size) noexcept {
        if (!active || size > largest) return false;
        Class& kept = classes[indexOf(size)];
        const std::lock_guard guard{mutex};
        if (kept.count == (size <= 4096 ? kept.blocks.size() : largeCount)) return false;
        kept.blocks[kept.count++] = block;
        return true;
    }

    void drop() noexcept {
        const std::lock_guard guard{mutex};
        for (Class& kept : classes)
            while (kept.count > 0)
                heapRelease(headerOf(kept.blocks[--kept.count]).raw);
    }

private:
    static constexpr std::size_t smallest = 64;
    static constexpr std::size_t largest = std::size_t{4} << 20;
    static constexpr std::size_t largeCount = 8;

    struct Class {
        std::array<void*, 256> blocks{};
        std::size_t count = 0;
    };

    static std::size_t indexOf(std::size_t classSize) {
        if (classSize <= smallest) return 0;
        const auto octave = static_cast<std::size_t>(std::bit_width(classSize - 1) - 7);
        const std::size_t base = smallest << octave;
        return octave * 4 + (classSize - base) / (base / 4);
    }

    std::mutex mutex; // a leaf, and held for a few instructions
    std::array<Class, 66> classes{};
};

KeptBlocks& keptBlocks() {
    static KeptBlocks* const blocks = new KeptBlocks; // outlives every static object
    return *blocks;
}

} // namespace

void HeapSource::install(HeapSource* replacement) noexcept {
    keptBlocks().drop();
    installed.store(replacement, std::memory_order_release);
}

void* memAlloc(std::size_t size) {
    if (size == 0) return nullptr;
    if (size >= bigAllocation)
        errorBox("MemAlloc : alloc size big (%d bytes)", static_cast<int>(size));

    const std::size_t held = KeptBlocks::classSize(size);
    if (void* const block = keptBlocks().take(held)) return block;

    const std::size_t whole = held + alignment + sizeof(void*);
    const bool exists = whole > held; // a size that wraps around is more than any heap has
    for (;;) {
        if (void* const raw = exists ? heapAllocate(whole) : nullptr) {
            const auto first = reinterpret_cast<std::uintptr_t>(raw) + sizeof(void*);
            const std::uintptr_t aligned = (first + alignment - 1) / alignment * alignment;
            auto* const block = reinterpret_cast<void*>(aligned);
            headerOf(block) = {held, raw};
            return block;
        }
        kernel().sleep(retryMs);
    }
}

void* memRealloc(void* block, std::size_t size) {
    if (!block) return memAlloc(size);
    if (size == 0) {
        memFree(block);
        return nullptr;
    }
    void* const moved = memAlloc(size);
    const std::size_t held = headerOf(block).size;
    std::memcpy(moved, block, held < size ? held : size);
    memFree(block);
    return moved;
}

void memFree(void* block) noexcept {
    if (!block) return;
    const BlockHeader header = headerOf(block);
    if (!keptBlocks().keep(block, header.size)) heapRelease(header.raw);
}

} // namespace velorine
