#pragma once

#include "foundation/RecursiveLock.h"

#include <atomic>
#include <cstdint>

namespace velorine {

class FxArena;
struct FxPage;

/// Shared holder of one run of samples in a page of an arena. Reached through `FxBufferRef`.
struct FxBuffer {
    FxPage* page = nullptr;   ///< counts one reference to it
    FxArena* arena = nullptr; ///< owner of the bytes; null while the holder has none
    std::int32_t offset = 0;  ///< of the samples, behind the page's header
    std::int32_t bytes = 0;
    std::atomic<std::int32_t> refCount{0}; ///< blocks that share the samples

    std::byte* data() const noexcept;
};

/// Bump allocator for sample data, in pinned pages of 192 KiB and more. One an engine.
///
/// There is no free list: a page starts over once nothing in it is used, and one that still is when
/// the arena moves on goes with its last block. Any thread.
class FxArena {
public:
    FxArena() = default;
    ~FxArena();
    FxArena(const FxArena&) = delete;
    FxArena& operator=(const FxArena&) = delete;

    /// Gives `buffer` a fresh run of `bytes` bytes, 16-byte aligned; what it held is given back.
    /// Only while the caller is the buffer's one owner.
    void* allocate(FxBuffer& buffer, int bytes);

    /// Takes the buffer's bytes back and drops its page.
    void release(FxBuffer& buffer);

    /// Gives up the current page if nobody else holds it.
    void trim();

    std::int32_t liveBytes() const noexcept { return live.load(std::memory_order_relaxed); }
    std::int32_t totalBytes() const noexcept { return total.load(std::memory_order_relaxed); }
    std::int32_t usedBytes() const;

private:
    void openPage(int bytes) REQUIRES(lock);
    void dropPage(FxPage* dropped);

    mutable RecursiveLock lock{LockRank::arena};
    FxPage* page GUARDED_BY(lock) = nullptr;    ///< current page
    std::int32_t capacity GUARDED_BY(lock) = 0; ///< usable bytes of the current page
    std::int32_t used GUARDED_BY(lock) = 0;     ///< bump offset
    std::atomic<std::int32_t> live{0};  ///< bytes handed out and not given back; a display reads it
    std::atomic<std::int32_t> total{0}; ///< usable bytes of all pages held; a display reads it
};

/// One block's share in an `FxBuffer`.
class FxBufferRef {
public:
    FxBufferRef() = default;
    FxBufferRef(const FxBufferRef& other) noexcept : holder(other.holder) { addReference(); }
    FxBufferRef(FxBufferRef&& other) noexcept : holder(other.holder) { other.holder = nullptr; }
    FxBufferRef& operator=(FxBufferRef other) noexcept {
        FxBuffer* const mine = holder;
        holder = other.holder;
        other.holder = mine;
        return *this;
    }
    ~FxBufferRef() { drop(); }

    /// Makes the caller the one owner of an empty holder: the old one is kept if nobody shares it.
    void renew();

    /// Fresh samples for a holder that nobody shares.
    void* allocate(FxArena& arena, int bytes);

    bool isShared() const noexcept {
        return holder && holder->refCount.load(std::memory_order_acquire) > 1;
    }
    explicit operator bool() const noexcept { return holder != nullptr; }
    std::byte* data() const noexcept { return holder ? holder->data() : nullptr; }
    std::int32_t bytes() const noexcept { return holder ? holder->bytes : 0; }
    const FxBuffer* get() const noexcept { return holder; }

private:
    void addReference() noexcept {
        if (holder) holder->refCount.fetch_add(1, std::memory_order_relaxed);
    }
    void drop() noexcept;

    FxBuffer* holder = nullptr;
};

} // namespace velorine
