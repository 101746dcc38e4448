#include "kestrix/KestrixKernels.h"

#include "foundation/CpuFeatures.h"

#include <initializer_list>

namespace velorine {

const KestrixKernels& kestrixKernels(std::uint32_t features) {
    for (const KestrixKernels* const kernels : {&avx2KestrixKernels, &sse2KestrixKernels})
        if (covers(features, kernels->features)) return *kernels;
    return plainKestrixKernels;
}

} // namespace velorine
