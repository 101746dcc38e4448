#pragma once

#include "foundation/SampleFormat.h"

#include <cstdint>
#include <cstring>

namespace velorine {

/// One sample in memory, at any address, for each container: its bytes, and its value, which for 8
/// bits has the offset taken off.

template <typename T>
struct NumberSample {
    static constexpr int bytes = sizeof(T);

    static T load(const std::uint8_t* from) {
        T value;
        std::memcpy(&value, from, sizeof value);
        return value;
    }
    static void store(std::uint8_t* to, T value) { std::memcpy(to, &value, sizeof value); }
};

struct ByteSample {
    static constexpr int bytes = 1;

    static int load(const std::uint8_t* from) { return *from - 128; }
    static void store(std::uint8_t* to, std::int32_t value) {
        *to = static_cast<std::uint8_t>(value + 128);
    }
};

struct ThreeByteSample {
    static constexpr int bytes = 3;

    static std::int32_t load(const std::uint8_t* from) {
        const std::uint32_t high = static_cast<std::uint32_t>(from[2]) << 24;
        const std::uint32_t word = high | static_cast<std::uint32_t>(from[1]) << 16 |
                                   static_cast<std::uint32_t>(from[0]) << 8;
        return static_cast<std::int32_t>(word) >> 8;
    }
    static void store(std::uint8_t* to, std::int32_t value) {
        const auto word = static_cast<std::uint32_t>(value);
        to[0] = static_cast<std::uint8_t>(word);
        to[1] = static_cast<std::uint8_t>(word >> 8);
        to[2] = static_cast<std::uint8_t>(word >> 16);
    }
};

} // namespace velorine
