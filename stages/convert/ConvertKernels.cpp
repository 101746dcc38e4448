#include "stages/convert/ConvertKernels.h"

#include "foundation/CpuFeatures.h"

#include <algorithm>
#include <array>

namespace velorine {

namespace {

struct Offer {
    const ConvertKernels* kernels;
    std::uint32_t needs; ///< `cpuFeature` bits
};

constexpr std::array offers = {
    Offer{&avx512ConvertKernels, cpuFeature::avx2Fma | cpuFeature::avx512},
    Offer{&avx2ConvertKernels, cpuFeature::avx2Fma}, // Avx2Kernels.cpp, its own -m flags
    Offer{&plainConvertKernels, 0},
};

} // namespace

const ConvertKernels& convertKernels(std::uint32_t features) {
    return *std::ranges::find_if(offers, [&](const Offer& offer) {
                return covers(features, offer.needs);
            })->kernels;
}

} // namespace velorine
