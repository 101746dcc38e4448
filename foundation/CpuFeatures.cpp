#include "foundation/CpuFeatures.h"

#include <cpuid.h>

namespace velorine {

namespace {
std::uint32_t readFeatures() noexcept {
    unsigned a = 0;
    unsigned b = 0;
    unsigned c = 0;
    unsigned d = 0;
    std::uint32_t features = 0;
    if (!__get_cpuid(1, &a, &b, &c, &d)) return 0;
    if (d & bit_CMOV) features |= cpuFeature::cmov;
    if (d & bit_MMX) features |= cpuFeature::mmx;
    if (d & bit_SSE) features |= cpuFeature::sse | cpuFeature::sseOrExtendedMmx;
    if (d & bit_SSE2) features |= cpuFeature::sse2;
    if (__get_cpuid(0x80000001u, &a, &b, &c, &d)) {
        constexpr unsigned extendedMmxBit = 1u << 22;
        constexpr unsigned amd3dNowBit = 1u << 31;
        if (d & extendedMmxBit) features |= cpuFeature::extendedMmx | cpuFeature::sseOrExtendedMmx;
        if (d & amd3dNowBit) features |= cpuFeature::amd3dNow;
    }
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"))
        features |= cpuFeature::avx2Fma;
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl"))
        features |= cpuFeature::avx512;
    return features;
}
} // namespace

std::uint32_t cpuFeatures() noexcept {
    static const std::uint32_t features = readFeatures();
    return features;
}

} // namespace velorine
