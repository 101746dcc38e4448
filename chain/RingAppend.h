#pragma once

#include "foundation/FxRing.h"

namespace velorine {

/// Pushes `block` behind the newest one: its positions follow from the axis, and time and source
/// position are held to never run backward.
void appendTo(FxRing& ring, FxBlock block);

/// Appends what a stage delivered. As `appendTo`, and besides: a block's format also becomes that
/// of the empty blocks just before it, which said that something follows and now know what. A third
/// empty block of the same spans isn't kept.
void commitTo(FxRing& ring, FxBlock block);

} // namespace velorine
