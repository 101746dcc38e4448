#pragma once

#include <cstdint>

namespace velorine {

/// The processor's time-stamp counter.
std::uint64_t cycleCount() noexcept;

} // namespace velorine
