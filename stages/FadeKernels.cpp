#include "stages/FadeKernels.h"

#include "foundation/CpuFeatures.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <type_traits>

namespace velorine {

namespace {

template <typename Sample, typename Value>
Sample storedAs(Value value) {
    if constexpr (std::is_floating_point_v<Sample>) {
        return static_cast<Sample>(value);
    } else {
        const auto q = static_cast<std::int64_t>(std::llrint(value));
        return static_cast<Sample>(std::clamp<std::int64_t>(q, std::numeric_limits<Sample>::min(),
                                                            std::numeric_limits<Sample>::max()));
    }
}

template <typename Sample>
int mixEqualPower(FadeRun& run) {
    const auto* const oldSide = static_cast<const Sample*>(run.oldSide);
    const auto* const newSide = static_cast<const Sample*>(run.newSide);
    auto* const out = static_cast<Sample*>(run.out);
    std::int64_t i = 0;
    for (int frame = 0; frame < run.frames; ++frame, run.t += run.step) {
        const auto t = static_cast<long double>(run.t);
        const long double newGain = std::sqrt(t);
        const long double oldGain = std::sqrt(1.0L - t);
        for (int channel = 0; channel < run.channels; ++channel, ++i) {
            long double y = 0.0L;
            if (newSide) y += static_cast<long double>(newSide[i]) * newGain;
            if (oldSide) y += static_cast<long double>(oldSide[i]) * oldGain;
            out[i] = storedAs<Sample>(y * static_cast<long double>(run.scale));
        }
    }
    return run.frames;
}

template <typename Sample>
int mixLinear(FadeRun& run) {
    const auto* const oldSide = static_cast<const Sample*>(run.oldSide);
    const auto* const newSide = static_cast<const Sample*>(run.newSide);
    auto* const out = static_cast<Sample*>(run.out);
    const auto scale = static_cast<float>(run.scale);
    std::int64_t i = 0;
    for (int frame = 0; frame < run.frames; ++frame, run.t += run.step) {
        const auto t = static_cast<float>(run.t);
        for (int channel = 0; channel < run.channels; ++channel, ++i) {
            const float before = oldSide ? static_cast<float>(oldSide[i]) : 0.0f;
            const float after = newSide ? static_cast<float>(newSide[i]) : 0.0f;
            out[i] = storedAs<Sample>(((after - before) * t + before) * scale);
        }
    }
    return run.frames;
}

struct Offer {
    const FadeKernels* kernels;
    std::uint32_t needs; ///< `cpuFeature` bits
};

constexpr std::array offers = {
    Offer{&avx2FadeKernels, cpuFeature::avx2Fma}, // FadeKernelsAvx2.cpp, its own -m flags
    Offer{&plainFadeKernels, 0},
};

} // namespace

const FadeKernels plainFadeKernels = {
    {mixEqualPower<std::int16_t>, mixEqualPower<std::int32_t>, mixEqualPower<float>},
    {mixLinear<std::int16_t>, mixLinear<std::int32_t>, mixLinear<float>},
    "plain",
};

const FadeKernels& fadeKernels(std::uint32_t features) {
    return *std::ranges::find_if(offers, [&](const Offer& offer) {
                return covers(features, offer.needs);
            })->kernels;
}

} // namespace velorine
