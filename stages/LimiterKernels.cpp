#include "stages/LimiterKernels.h"

#include "foundation/CpuFeatures.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace velorine {

namespace {

void require(const float* pairs, int frames, double* required) {
    for (int i = 0; i < frames; ++i) {
        const float peak = std::max(std::fabs(pairs[2 * i]), std::fabs(pairs[2 * i + 1]));
        required[i] = peak >= 1.0F ? 1.0 / static_cast<double>(peak) : 1.0;
    }
}

/// Slope of the steepest line from `gain`, one frame before `required`, to any of it; 0 where none
/// leads down.
double steepestSlope(const double* required, double gain) {
    double slope = 0.0;
    for (int k = 1; k <= limiterLook; ++k)
        slope = std::min(slope, (required[k - 1] - gain) / k);
    return slope;
}

void follow(LimiterRun& run) {
    const double* const required = run.required;
    const auto isLoud = [](double requirement) { return requirement < 1.0; };
    int lastLoud = limiterLook - 2; // of what the frame before could see
    while (lastLoud >= 0 && !isLoud(required[lastLoud]))
        --lastLoud;

    double gain = run.gain;
    for (int i = 0; i < run.frames; ++i) {
        if (isLoud(required[i + limiterLook - 1])) lastLoud = i + limiterLook - 1;
        double g = std::min(1.0, gain * run.rise);
        const double slope = lastLoud >= i ? steepestSlope(required + i, g) : 0.0;
        g = std::min(g, required[i]); // behind the slope: such a frame gets both
        gain = std::clamp(g + slope, 0.01, 1.0);
        run.gains[i] = gain;
    }
    run.gain = gain;
}

void apply(const float* pairs, const double* gains, int frames, float* to) {
    for (int i = 0; i < frames; ++i) {
        to[2 * i] = static_cast<float>(static_cast<double>(pairs[2 * i]) * gains[i]);
        to[2 * i + 1] = static_cast<float>(static_cast<double>(pairs[2 * i + 1]) * gains[i]);
    }
}

struct Offer {
    const LimiterKernels* kernels;
    std::uint32_t needs; ///< `cpuFeature` bits
};

constexpr std::array offers = {
    Offer{&avx2LimiterKernels, cpuFeature::avx2Fma}, // LimiterKernelsAvx2.cpp, its own -m flags
    Offer{&plainLimiterKernels, 0},
};

} // namespace

const LimiterKernels plainLimiterKernels = {require, follow, apply, "plain"};

const LimiterKernels& limiterKernels(std::uint32_t features) {
    return *std::ranges::find_if(offers, [&](const Offer& offer) {
                return covers(features, offer.needs);
            })->kernels;
}

} // namespace velorine
