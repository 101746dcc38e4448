#pragma once

#include "foundation/FxRing.h"
#include "foundation/FxTime.h"

#include <cstdint>

namespace velorine {

/// The walks between stream time and frames. Blocks carry both, so a position maps to time without
/// any drift, whatever a stage did to the rate. Each works on a ring that its caller guards.

/// Frame at which `t` falls: linear inside a block, the first frame before the oldest, and behind
/// the newest as far as time runs on at its rate. 0 in an empty ring.
std::int64_t timeToFrame(const FxRing& ring, FxTime t);

/// Stream time at frame `p`; held to the ring's ends. 0 in an empty ring.
FxTime frameToTime(const FxRing& ring, std::int64_t p);

/// The block that holds `t`, or the one at the nearest end; null in an empty ring.
const FxBlock* blockAtTime(const FxRing& ring, FxTime t);

/// Stream time at frame `p`, by walking from the block where the last search ended.
///
/// @param searchCursor  absolute block number; where this search ended, afterwards
FxTime frameToTime(const FxRing& ring, std::int64_t p, std::int32_t& searchCursor);

} // namespace velorine
