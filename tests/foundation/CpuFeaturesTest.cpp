#include "foundation/CpuFeatures.h"

#include <gtest/gtest.h>

namespace velorine::test {

namespace {

TEST(CpuFeatures, HaveTheBitsOfTheFeatureWord) {
    EXPECT_EQ(cpuFeature::cmov, 4u);
    EXPECT_EQ(cpuFeature::mmx, 8u);
    EXPECT_EQ(cpuFeature::sseOrExtendedMmx, 16u);
    EXPECT_EQ(cpuFeature::amd3dNow, 32u);
    EXPECT_EQ(cpuFeature::extendedMmx, 64u);
    EXPECT_EQ(cpuFeature::sse, 128u);
    EXPECT_EQ(cpuFeature::sse2, 256u);
}

TEST(CpuFeatures, HoldWhatTheBuildNeeds) {
    // this program is built for SSE2, which no processor has without the older ones
    constexpr std::uint32_t needed = cpuFeature::cmov | cpuFeature::mmx |
                                     cpuFeature::sseOrExtendedMmx | cpuFeature::sse |
                                     cpuFeature::sse2;
    EXPECT_TRUE(covers(cpuFeatures(), needed));
    EXPECT_EQ(cpuFeatures(), cpuFeatures());
}

TEST(CpuFeatures, AgreeWithTheCompiler) {
    __builtin_cpu_init();
    const bool wide = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    EXPECT_EQ(covers(cpuFeatures(), cpuFeature::avx2Fma), wide);
}

TEST(CpuFeatures, ExtendedMmxCountsForBothOfItsBits) {
    if (!covers(cpuFeatures(), cpuFeature::extendedMmx)) GTEST_SKIP() << "no extended MMX here";
    EXPECT_TRUE(covers(cpuFeatures(), cpuFeature::sseOrExtendedMmx));
}

TEST(CpuFeatures, CoverAllBitsOrNothing) {
    EXPECT_TRUE(covers(12, 8));
    EXPECT_TRUE(covers(12, 12));
    EXPECT_TRUE(covers(0, 0));
    EXPECT_FALSE(covers(8, 12));
}

} // namespace

} // namespace velorine::test
