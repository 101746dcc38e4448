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
    Offer{&plainConvertKernels, 0},
};

} // namespace

const ConvertKernels& convertKernels(std::uint32_t features) {
    return *std::ranges::find_if(offers, [&](const Offer& offer) {
                return covers(features, offer.needs);
            })->kernels;
}

} // namespace velorine
