#include "stages/resample/ResampleKernels.h"

#include "foundation/CpuFeatures.h"

#include <initializer_list>

namespace velorine {

const ResampleKernel& resampleKernel(std::uint32_t features, bool needsDouble, bool reducedBits) {
    const auto firstOf =
        [features](std::initializer_list<const ResampleKernel*> kernels) -> const ResampleKernel* {
        for (const ResampleKernel* const kernel : kernels)
            if (covers(features, kernel->features)) return kernel;
        return nullptr;
    };
    if (!needsDouble)
        if (const auto* const kernel = firstOf({&singleAvx2Kernel, &singleSse2Kernel}))
            return *kernel;
    if (const auto* const kernel = firstOf({&doubleAvx2Kernel, &doubleSse2Kernel})) return *kernel;
    const bool fastPairs = covers(features, pairsKernel.features);
    return needsDouble || reducedBits || !fastPairs ? ditherKernel : pairsKernel;
}

} // namespace velorine
