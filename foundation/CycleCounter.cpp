#include "foundation/CycleCounter.h"

#include <x86intrin.h>

namespace velorine {

std::uint64_t cycleCount() noexcept {
    return __rdtsc();
}

} // namespace velorine
