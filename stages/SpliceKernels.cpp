#include "stages/SpliceKernels.h"

#include "foundation/CpuFeatures.h"

#include <algorithm>
#include <array>

namespace velorine {

namespace {

std::int16_t clamped(std::int64_t value) {
    return static_cast<std::int16_t>(std::clamp<std::int64_t>(value, -32768, 32767));
}

void mixGrain(const SpliceRun& run) {
    std::int64_t i = 0;
    for (int frame = 0; frame < run.frames; ++frame) {
        const auto outgoing = static_cast<std::int32_t>(run.weights[frame] & 0xFFFF);
        const auto incoming = static_cast<std::int32_t>(run.weights[frame] >> 16);
        for (int channel = 0; channel < run.channels; ++channel, ++i) {
            const std::int32_t mix =
                (run.outgoing[i] * outgoing + run.incoming[i] * incoming + 0x80) >> 8;
            run.out[i] = clamped((mix * run.level + 0x2000) >> 14);
        }
    }
}

struct Offer {
    const SpliceKernels* kernels;
    std::uint32_t needs; ///< `cpuFeature` bits
};

constexpr std::array offers = {
    Offer{&avx2SpliceKernels, cpuFeature::avx2Fma}, // SpliceKernelsAvx2.cpp, its own -m flags
    Offer{&plainSpliceKernels, 0},
};

} // namespace

const SpliceKernels plainSpliceKernels = {mixGrain, "plain"};

const SpliceKernels& spliceKernels(std::uint32_t features) {
    return *std::ranges::find_if(offers, [&](const Offer& offer) {
                return covers(features, offer.needs);
            })->kernels;
}

void scaleSamples(const std::int16_t* from, int count, std::int64_t level, std::int16_t* to) {
    for (int i = 0; i < count; ++i)
        to[i] = clamped((from[i] * level + 0x80) >> 8);
}

} // namespace velorine
