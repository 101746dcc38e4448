#include "foundation/Mt19937.h"

#include "foundation/CpuFeatures.h"
#include "foundation/EntropySource.h"
#include "foundation/Mt19937Kernel.h"

#include <algorithm>

namespace velorine {

namespace {
constexpr std::uint32_t upperMask = 0x80000000u;
constexpr std::uint32_t lowerMask = 0x7fffffffu;

constexpr std::array kernels = {
    Mt19937Kernel{refillAvx512, triangularAvx512, "avx512",
                  cpuFeature::avx2Fma | cpuFeature::avx512},
    Mt19937Kernel{refillAvx2, triangularAvx2, "avx2", cpuFeature::avx2Fma},
    Mt19937Kernel{refillPlain, triangularPlain, "plain", 0},
};

const Mt19937Kernel* kernelFor(std::uint32_t features) {
    return std::ranges::find_if(
        kernels, [&](const Mt19937Kernel& kernel) { return covers(features, kernel.needs); });
}

constexpr std::uint32_t twist(std::uint32_t upper, std::uint32_t lower, std::uint32_t middle) {
    const std::uint32_t y = (upper & upperMask) | (lower & lowerMask);
    return middle ^ (y >> 1) ^ ((y & 1u) ? 0x9908b0dfu : 0u);
}

constexpr double uniformOf(std::uint32_t word) {
    return static_cast<double>(Mt19937::temper(word)) * 0x1p-32;
}
} // namespace

void refillPlain(std::uint32_t* state) {
    constexpr int n = Mt19937::stateWords;
    constexpr int m = 397;
    for (int i = 0; i < n - m; ++i)
        state[i] = twist(state[i], state[i + 1], state[i + m]);
    for (int i = n - m; i < n - 1; ++i)
        state[i] = twist(state[i], state[i + 1], state[i + m - n]);
    state[n - 1] = twist(state[n - 1], state[0], state[m - 1]);
}

void triangularPlain(const std::uint32_t* words, int count, double* to) {
    for (int i = 0; i < count; ++i)
        to[i] = uniformOf(words[2 * i]) - uniformOf(words[2 * i + 1]);
}

Mt19937::Mt19937() : Mt19937(firstSeed) {
    seed(entropySeed());
}

Mt19937::Mt19937(std::uint32_t fixedSeed) : kernel(kernelFor(cpuFeatures())) {
    seed(fixedSeed);
}

void Mt19937::useKernels(std::uint32_t features) {
    kernel = kernelFor(features & cpuFeatures());
}

void Mt19937::seed(std::uint32_t value) {
    state[0] = value;
    for (std::uint32_t i = 1; i < stateWords; ++i) {
        const std::uint32_t before = state[i - 1];
        state[i] = 1812433253u * (before ^ (before >> 30)) + i;
    }
    index = stateWords;
}

void Mt19937::triangular(std::span<double> to) {
    while (!to.empty()) {
        int words = 0;
        const std::uint32_t* const from = pending(&words);
        const std::size_t draws = std::min(to.size(), static_cast<std::size_t>(words / 2));
        if (draws == 0) { // a pair that spans the refill
            to.front() = triangular();
            to = to.subspan(1);
            continue;
        }
        kernel->triangular(from, static_cast<int>(draws), to.data());
        skip(static_cast<int>(2 * draws));
        to = to.subspan(draws);
    }
}

void Mt19937::refill() {
    kernel->refill(state.data());
    index = 0;
}

} // namespace velorine
