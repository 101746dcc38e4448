#pragma once

#include <cmath>
#include <cstdint>

namespace velorine {

/// Fractional frame position: `whole + frac / 2^64`.
struct FxPos {
    std::uint64_t frac = 0;
    std::int64_t whole = 0;

    FxPos() = default;
    constexpr FxPos(std::int64_t frame, std::uint64_t fraction) : frac(fraction), whole(frame) {}

    /// Nearest position at or below `value`; its lowest fraction bit is always 0.
    static FxPos fromDouble(double value) {
        const double floor = std::floor(value);
        const double half = std::floor((value - floor) * 0x1p63);
        // just below a whole number the difference rounds to 1, and all bits would wrap to 0
        const std::uint64_t bits =
            half < 0x1p63 ? static_cast<std::uint64_t>(half) : (std::uint64_t{1} << 63) - 1;
        return {static_cast<std::int64_t>(floor), 2 * bits};
    }

    static constexpr FxPos fromFrame(std::int64_t frame) { return {frame, 0}; }

    double toDouble() const {
        return static_cast<double>(whole) + static_cast<double>(frac) * 0x1p-64;
    }

    constexpr std::int64_t ceil() const { return whole + (frac != 0 ? 1 : 0); }

    /// As 48.16 fixed point, rounded to nearest.
    constexpr std::int64_t toFixed() const {
        return (whole << 16) + static_cast<std::int64_t>(((frac >> 47) + 1) >> 1);
    }

    friend constexpr FxPos operator+(const FxPos& a, const FxPos& b) {
        const std::uint64_t sum = a.frac + b.frac;
        return {a.whole + b.whole + (sum < a.frac ? 1 : 0), sum};
    }

    friend constexpr FxPos operator-(const FxPos& a, const FxPos& b) {
        return {a.whole - b.whole - (a.frac < b.frac ? 1 : 0), a.frac - b.frac};
    }

    /// As many sums, `count` 0 or above.
    friend constexpr FxPos operator*(const FxPos& step, std::uint32_t count) {
        const std::uint64_t low = (step.frac & 0xFFFFFFFF) * count;
        const std::uint64_t high = (step.frac >> 32) * count + (low >> 32);
        return {step.whole * count + static_cast<std::int64_t>(high >> 32),
                (high << 32) | (low & 0xFFFFFFFF)};
    }
    FxPos& operator+=(const FxPos& other) { return *this = *this + other; }
    friend constexpr bool operator==(const FxPos& a, const FxPos& b) = default;
};

} // namespace velorine
