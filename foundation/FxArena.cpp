#include "foundation/FxArena.h"

#include "foundation/LockedPages.h"
#include "foundation/Memory.h"

#include <cassert>
#include <new>
#include <utility>

namespace velorine {

/// Head of a page; the samples begin 64 bytes in.
struct FxPage {
    std::atomic<std::int32_t> refCount{1}; ///< its buffers, and the arena while it fills the page
    std::int32_t capacity = 0;             ///< usable bytes
    LockedPages pages;

    std::byte* samples() noexcept;
};

namespace {
constexpr int headerBytes = 64;
static_assert(sizeof(FxPage) <= headerBytes);
constexpr int bufferAlignment = 16;

/// Room for `bytes` and 192 KiB of others, in steps of 32 KiB.
std::size_t pageSizeFor(int bytes) {
    return (static_cast<std::size_t>(bytes) + 0x37FFF) & ~std::size_t{0x7FFF};
}
} // namespace

std::byte* FxPage::samples() noexcept {
    return reinterpret_cast<std::byte*>(this) + headerBytes;
}

std::byte* FxBuffer::data() const noexcept {
    return page ? page->samples() + offset : nullptr;
}

FxArena::~FxArena() {
    trim();
    assert(total.load() == 0 && "blocks outlive their arena");
}

void FxArena::openPage(int bytes) {
    LockedPages pages{pageSizeFor(bytes)};
    auto* const opened = new (pages.bytes().data()) FxPage;
    opened->capacity = static_cast<std::int32_t>(pages.bytes().size()) - headerBytes;
    opened->pages = std::move(pages);
    page = opened;
    capacity = opened->capacity;
    used = 0;
    total.fetch_add(capacity, std::memory_order_relaxed);
}

void FxArena::dropPage(FxPage* dropped) {
    if (!dropped || dropped->refCount.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    total.fetch_sub(dropped->capacity, std::memory_order_relaxed);
    const LockedPages freed = std::move(dropped->pages);
    dropped->~FxPage();
}

void* FxArena::allocate(FxBuffer& buffer, int bytes) {
    assert(bytes >= 0 && buffer.refCount.load(std::memory_order_relaxed) <= 1);
    if (buffer.arena) buffer.arena->release(buffer); // which may be another one

    const RecursiveLock::Scope scope{lock};
    if (!page || page->refCount.load(std::memory_order_acquire) < 2) used = 0;
    live.fetch_add(bytes, std::memory_order_relaxed);
    if (!page || capacity - used < bytes) { // no bytes have a place in a page, too
        dropPage(std::exchange(page, nullptr));
        capacity = 0;
        openPage(bytes);
    }
    page->refCount.fetch_add(1, std::memory_order_relaxed);
    buffer.page = page;
    buffer.arena = this;
    buffer.offset = used;
    buffer.bytes = bytes;
    used = (used + bytes + bufferAlignment - 1) & ~(bufferAlignment - 1);
    return buffer.data();
}

void FxArena::release(FxBuffer& buffer) {
    if (!buffer.page) return;
    assert(buffer.arena == this);
    {
        const RecursiveLock::Scope scope{lock};
        live.fetch_sub(buffer.bytes, std::memory_order_relaxed);
    }
    dropPage(std::exchange(buffer.page, nullptr));
    buffer.arena = nullptr;
    buffer.bytes = 0;
}

void FxArena::trim() {
    const RecursiveLock::Scope scope{lock};
    if (!page || page->refCount.load(std::memory_order_acquire) > 1) return;
    dropPage(std::exchange(page, nullptr));
    capacity = 0;
    used = 0;
}

std::int32_t FxArena::usedBytes() const {
    const RecursiveLock::Scope scope{lock};
    return used;
}

void FxBufferRef::renew() {
    if (holder && !isShared()) return;
    drop();
    holder = new (memAlloc(sizeof(FxBuffer))) FxBuffer;
    holder->refCount.store(1, std::memory_order_relaxed);
}

void* FxBufferRef::allocate(FxArena& arena, int bytes) {
    renew();
    return arena.allocate(*holder, bytes);
}

void FxBufferRef::drop() noexcept {
    FxBuffer* const dropped = std::exchange(holder, nullptr);
    if (!dropped || dropped->refCount.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    if (dropped->arena) dropped->arena->release(*dropped);
    dropped->~FxBuffer();
    memFree(dropped);
}

} // namespace velorine
