#pragma once

#include <cmath>
#include <cstdint>

namespace velorine {

/// To nearest, ties to even: the rounding of all samples and positions unless told otherwise.
inline std::int64_t roundToEven(double value) noexcept {
    return std::llrint(value);
}

/// `a * b / d` to nearest, ties away from zero; 0 when `d` is 0. Exact while the product fits 64
/// bits, which an hour at any audio rate does; beyond that (a host that gives absurd rates or
/// times) within the extended precision's 64 bits, and held to +-2^62, so that a sum with a
/// position stays valid.
constexpr std::int64_t scaledRounded(std::int64_t a, std::int64_t b, std::int64_t d) noexcept {
    if (d == 0) return 0;
    std::int64_t product = 0;
    std::int64_t rounded = 0;
    const std::int64_t half = d / 2;
    if (!__builtin_mul_overflow(a, b, &product) &&
        !__builtin_add_overflow(product, product < 0 ? -half : half, &rounded))
        return rounded / d;
    constexpr long double bound = 0x1p62L;
    const long double quotient =
        static_cast<long double>(a) * static_cast<long double>(b) / static_cast<long double>(d);
    const long double nearest = quotient + (quotient < 0.0L ? -0.5L : 0.5L);
    return static_cast<std::int64_t>(nearest < -bound ? -bound : nearest > bound ? bound : nearest);
}

} // namespace velorine
