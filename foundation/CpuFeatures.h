#pragma once

#include <cstdint>

namespace velorine {

/// Bits of the processor's feature word.
namespace cpuFeature {
inline constexpr std::uint32_t cmov = 4;
inline constexpr std::uint32_t mmx = 8;
inline constexpr std::uint32_t sseOrExtendedMmx = 16;
inline constexpr std::uint32_t amd3dNow = 32;
inline constexpr std::uint32_t extendedMmx = 64;
inline constexpr std::uint32_t sse = 128;
inline constexpr std::uint32_t sse2 = 256;
inline constexpr std::uint32_t avx2Fma = 512; ///< both, and the system saves their registers
inline constexpr std::uint32_t avx512 = 1024; ///< F and VL, the same
} // namespace cpuFeature

/// What the processor can do, read once. Any thread.
std::uint32_t cpuFeatures() noexcept;

/// Whether all bits of `needed` are in `have`.
constexpr bool covers(std::uint32_t have, std::uint32_t needed) noexcept {
    return (have & needed) == needed;
}

} // namespace velorine
