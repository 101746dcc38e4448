#pragma once

#include "foundation/FxRing.h"

namespace velorine {

class FxStage;

/// A stage of the chain and the ring that holds what it made.
struct FxChainEntry {
    FxStage* stage = nullptr;
    FxRing* ring = nullptr; ///< stays in place while the array of entries grows
};

} // namespace velorine
