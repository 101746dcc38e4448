#pragma once

#include <cstdint>

namespace velorine {

/// Signed count of 100 ns ticks, on a stream time line or on the system's clock.
using FxTime = std::int64_t;

inline constexpr FxTime ticksPerSecond = 10'000'000;
inline constexpr FxTime ticksPerMs = 10'000;

} // namespace velorine
