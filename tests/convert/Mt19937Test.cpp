#include "foundation/Mt19937.h"
#include "foundation/CpuFeatures.h"
#include "foundation/EntropySource.h"
#include "tests/convert/ConvertSupport.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <vector>

namespace velorine {
namespace {

constexpr std::array featureSets = {std::uint32_t{0}, cpuFeature::avx2Fma,
                                    cpuFeature::avx2Fma | cpuFeature::avx512};

class Mt19937Kernels : public testing::TestWithParam<std::uint32_t> {
protected:
    void SetUp() override {
        if (!covers(cpuFeatures(), GetParam())) GTEST_SKIP() << "not on this processor";
        generator.useKernels(GetParam());
    }

    Mt19937 generator{1};
};

TEST_P(Mt19937Kernels, YieldsTheKnownFirstAndTenThousandthNumber) {
    generator.seed(5489);
    EXPECT_EQ(generator.next(), 3499211612u);
    for (int i = 0; i < 9998; ++i)
        generator.next();
    EXPECT_EQ(generator.next(), 4123659995u);
}

TEST_P(Mt19937Kernels, YieldsTheKnownNumbersOfTheFirstSeed) {
    generator.seed(Mt19937::firstSeed);
    for (const std::uint32_t known :
         {0x483bec5bu, 0x6a245d8du, 0xc94298ceu, 0x542dd327u, 0x0297e946u, 0x7fe8b4c5u})
        EXPECT_EQ(generator.next(), known);

    generator.seed(Mt19937::firstSeed);
    EXPECT_NEAR(generator.triangular(), -0.1324530360, 5e-11);
}

TEST_P(Mt19937Kernels, EqualsTheStandardGenerator) {
    for (const std::uint32_t seed : {0u, 1u, 0xffffffffu, 20240229u}) {
        generator.seed(seed);
        std::mt19937 standard{seed};
        for (int i = 0; i < 5 * Mt19937::stateWords; ++i)
            ASSERT_EQ(generator.next(), standard()) << "seed " << seed << ", word " << i;
    }
}

TEST_P(Mt19937Kernels, BulkDrawsAreThoseDrawnOneByOne) {
    // From an even and an odd place in the state, so that a pair spans a refill, too.
    for (const int before : {0, 1}) {
        generator.seed(42);
        std::mt19937 standard{42};
        for (int i = 0; i < before; ++i)
            ASSERT_EQ(generator.next(), standard());
        for (int count = 0; count <= 700; ++count) {
            std::vector<double> draws(static_cast<std::size_t>(count));
            generator.triangular(draws);
            for (const double draw : draws) {
                const double a = static_cast<double>(standard()) / 4294967296.0;
                ASSERT_EQ(draw, a - static_cast<double>(standard()) / 4294967296.0);
            }
        }
        EXPECT_EQ(generator.next(), standard());
    }
}

INSTANTIATE_TEST_SUITE_P(AllKernels, Mt19937Kernels, testing::ValuesIn(featureSets));

TEST(Mt19937, SecondSeedComesFromTheEntropySource) {
    const FixedEntropy entropy{5489};
    Mt19937 generator;
    EXPECT_EQ(generator.next(), 3499211612u);
}

} // namespace
} // namespace velorine
