#pragma once

#include <cmath>
#include <cstdint>

namespace velorine {

/// To nearest, ties to even: the rounding of all samples and positions unless told otherwise.
inline std::int64_t roundToEven(double value) noexcept {
    return std::llrint(value);
}

/// `a * b / d` to nearest, ties away from zero, in 64-bit integers; 0 when `d` is 0.
constexpr std::int64_t scaledRounded(std::int64_t a, std::int64_t b, std::int64_t d) noexcept {
    if (d == 0) return 0;
    const std::int64_t product = a * b;
    const std::int64_t half = d / 2;
    return (product + (product < 0 ? -half : half)) / d;
}

} // namespace velorine
