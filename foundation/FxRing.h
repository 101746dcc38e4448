#pragma once

#include "foundation/FxBlock.h"

#include <cassert>
#include <cstdint>

namespace velorine {

/// Circular deque of blocks, ordered by position, with an absolute number for each block.
///
/// A ring that ever held a block is never without one again: where cutting or clearing would empty
/// it, a block without frames stays and keeps the end of the axis. Guarded by its owner.
class FxRing {
public:
    FxRing() = default;
    ~FxRing();
    FxRing(const FxRing&) = delete;
    FxRing& operator=(const FxRing&) = delete;

    int count() const noexcept { return used; }
    int capacity() const noexcept { return room; }
    bool empty() const noexcept { return used == 0; }

    FxBlock& at(int i) noexcept { return base[slot(i)]; }
    const FxBlock& at(int i) const noexcept { return base[slot(i)]; }
    FxBlock& newest() noexcept { return at(used - 1); }
    const FxBlock& newest() const noexcept { return at(used - 1); }
    const FxBlock& oldest() const noexcept { return at(0); }

    /// `posEnd` of the newest block, 0 in an empty ring.
    std::int64_t end() const noexcept { return used > 0 ? newest().posEnd : 0; }

    /// Number of the oldest block since the ring was made; block `n` stands at index `n -
    /// removed()`. Grows with each pop and with nothing else.
    std::int32_t removed() const noexcept { return popped; }

    /// Capacity 48 first, then doubled.
    void push(FxBlock block);

    /// Drops the oldest block.
    void pop() noexcept;

    /// Cuts everything behind frame `pos`. The block that holds it is shortened, its time and
    /// source ends interpolated; a block without frames that stands at `pos` itself stays, for the
    /// time that it covers has passed. Where nothing would be left, the oldest block's start does.
    void truncate(std::int64_t pos);

    /// Drops all blocks and leaves `marker`, a block without frames, as the ring's end.
    void clearTo(const FxBlock& marker);

    /// An empty block at the ring's end: its last position, time, source position and format.
    FxBlock endMarker() const;

private:
    int slot(int i) const noexcept {
        assert(i >= 0 && i < used);
        const int sum = head + i;
        return sum >= room ? sum - room : sum;
    }
    void grow();
    void popNewest() noexcept;

    FxBlock* base = nullptr;
    int room = 0;
    int used = 0;
    int head = 0;
    std::int32_t popped = 0;
};

} // namespace velorine
