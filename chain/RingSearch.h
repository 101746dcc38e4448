#pragma once

#include "foundation/FxPos.h"
#include "foundation/FxRing.h"

#include <cstdint>

namespace velorine {

/// Index of the block that a reader at `frame` takes next: the first that ends behind `frame` or
/// begins at or behind it. `count()` when the ring ends before. Binary search.
int indexAt(const FxRing& ring, std::int64_t frame);

/// The same from the block that `cursor` names, an absolute block number, and its neighbours; an
/// unrelated frame falls back to the binary search. A block without frames at `frame` is taken
/// once: the reader moves `cursor` past what it has taken, as the frame number doesn't move.
int indexAt(const FxRing& ring, std::int64_t frame, std::int32_t cursor);

/// Stream time at `frame`: interpolated inside a block and in a gap, that of the nearest end
/// outside, 0 in an empty ring.
FxTime timeAtFrame(const FxRing& ring, std::int64_t frame);

/// Position in the input of the ring's stage at `frame`. Walks from the newest block back and takes
/// the first whose `[posStart, posEnd]` holds `frame`; at a border the newer one answers. The
/// oldest block's `srcStart` when none does.
FxPos sourceAt(const FxRing& ring, std::int64_t frame);

/// Frame at which `time` falls: the end behind the newest block, the start before the oldest; in a
/// block of no duration its `posEnd`.
std::int64_t frameAtTime(const FxRing& ring, FxTime time);

/// End of the run of blocks from `from` on, up to `to`, that share type, channels and rate and use
/// the whole width of their samples: as many frames may be handled as one piece.
std::int64_t firstUsableFrame(const FxRing& ring, std::int64_t from, std::int64_t to);

} // namespace velorine
