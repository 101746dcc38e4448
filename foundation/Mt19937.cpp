#include "foundation/Mt19937.h"

#include "foundation/EntropySource.h"

namespace velorine {

namespace {
constexpr std::uint32_t upperMask = 0x80000000u;
constexpr std::uint32_t lowerMask = 0x7fffffffu;

constexpr std::uint32_t twist(std::uint32_t upper, std::uint32_t lower, std::uint32_t middle) {
    const std::uint32_t y = (upper & upperMask) | (lower & lowerMask);
    return middle ^ (y >> 1) ^ ((y & 1u) ? 0x9908b0dfu : 0u);
}
} // namespace

Mt19937::Mt19937() {
    seed(firstSeed);
    seed(entropySeed());
}

void Mt19937::seed(std::uint32_t value) {
    state[0] = value;
    for (std::uint32_t i = 1; i < stateWords; ++i) {
        const std::uint32_t before = state[i - 1];
        state[i] = 1812433253u * (before ^ (before >> 30)) + i;
    }
    index = stateWords;
}

void Mt19937::refill() {
    constexpr std::size_t n = stateWords;
    constexpr std::size_t m = 397;
    for (std::size_t i = 0; i < n - m; ++i)
        state[i] = twist(state[i], state[i + 1], state[i + m]);
    for (std::size_t i = n - m; i < n - 1; ++i)
        state[i] = twist(state[i], state[i + 1], state[i + m - n]);
    state[n - 1] = twist(state[n - 1], state[0], state[m - 1]);
    index = 0;
}

} // namespace velorine
