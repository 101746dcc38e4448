#include "kestrix/KestrixKernels.h"
#include "foundation/CpuFeatures.h"
#include "kestrix/SoftClip.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace velorine::test {
namespace {

using Numbers = std::vector<float>;

class KestrixKernelSets : public testing::TestWithParam<const KestrixKernels*> {
protected:
    void SetUp() override {
        if (!covers(cpuFeatures(), GetParam()->features)) GTEST_SKIP() << "not on this processor";
    }

    Numbers numbers(int count, float peak = 1.0F) {
        std::uniform_real_distribution<float> sample{-peak, peak};
        Numbers values(static_cast<std::size_t>(count));
        for (float& value : values)
            value = sample(generator);
        return values;
    }

    static void expectNear(const Numbers& a, const Numbers& b, float tolerance, int length) {
        ASSERT_EQ(a.size(), b.size());
        for (std::size_t i = 0; i < a.size(); ++i)
            ASSERT_NEAR(a[i], b[i], tolerance) << "value " << i << " of length " << length;
    }

    const KestrixKernels& fast = *GetParam();
    const KestrixKernels& plain = plainKestrixKernels;
    std::mt19937 generator{5};
};

TEST_P(KestrixKernelSets, WindowPairsAtEveryTail) {
    for (int pairs = 0; pairs < 40; ++pairs) {
        const Numbers from = numbers(2 * pairs);
        const Numbers window = numbers(pairs);
        Numbers a(from.size() + 2, 7.0F);
        Numbers b = a;
        fast.windowPairs(from.data(), window.data(), pairs, a.data());
        plain.windowPairs(from.data(), window.data(), pairs, b.data());
        ASSERT_EQ(a, b) << pairs;
    }
}

TEST_P(KestrixKernelSets, MeasureBinsAtEveryTail) {
    for (int length = 4; length < 90; length += 2) {
        const Numbers spectrum = numbers(2 * length);
        Numbers energyA(static_cast<std::size_t>(length / 2) + 1, 7.0F);
        Numbers differenceA = energyA;
        Numbers energyB = energyA;
        Numbers differenceB = energyA;
        fast.measureBins(spectrum.data(), length, energyA.data(), differenceA.data());
        plain.measureBins(spectrum.data(), length, energyB.data(), differenceB.data());
        expectNear(energyA, energyB, 1e-6F, length);
        expectNear(differenceA, differenceB, 1e-6F, length);
    }
}

TEST_P(KestrixKernelSets, WeightedSumsAtEveryTail) {
    for (int count = 0; count < 40; ++count) {
        const Numbers weight = numbers(count);
        const Numbers a = numbers(count);
        const Numbers b = numbers(count);
        double fastSums[2];
        double plainSums[2];
        fast.weightedSums(weight.data(), a.data(), b.data(), count, fastSums);
        plain.weightedSums(weight.data(), a.data(), b.data(), count, plainSums);
        ASSERT_NEAR(fastSums[0], plainSums[0], 1e-6) << count;
        ASSERT_NEAR(fastSums[1], plainSums[1], 1e-6) << count;
    }
}

TEST_P(KestrixKernelSets, SumsAtEveryTail) {
    for (int count = 0; count < 40; ++count) {
        const Numbers from = numbers(count);
        Numbers a = numbers(count + 1);
        Numbers b = a;
        fast.addScaled(from.data(), 0.37F, count, a.data());
        plain.addScaled(from.data(), 0.37F, count, b.data());
        ASSERT_EQ(a, b) << count;
        fast.addTo(from.data(), count, a.data());
        plain.addTo(from.data(), count, b.data());
        ASSERT_EQ(a, b) << count;
    }
}

TEST_P(KestrixKernelSets, ApplyResponseAtEveryTail) {
    for (int length = 4; length < 90; length += 2) {
        Numbers a = numbers(2 * length);
        Numbers b = a;
        const Numbers response = numbers(length + 2);
        fast.applyResponse(a.data(), response.data(), length);
        plain.applyResponse(b.data(), response.data(), length);
        expectNear(a, b, 1e-6F, length);
    }
}

TEST_P(KestrixKernelSets, ClipPairsAtEveryTail) {
    for (const float peak : {0.5F, 0.75F, 1.0F, 1.5F, 40.0F}) {
        for (int pairs = 0; pairs < 40; ++pairs) {
            const Numbers from = numbers(2 * pairs, peak);
            Numbers a(from.size() + 2, 7.0F);
            Numbers b = a;
            fast.clipPairs(from.data(), pairs, a.data());
            plain.clipPairs(from.data(), pairs, b.data());
            expectNear(a, b, 5e-7F, pairs);
        }
    }
}

TEST_P(KestrixKernelSets, ClipPairsFollowTheCurve) {
    Numbers from;
    for (int i = 0; i < 4000; ++i) {
        from.push_back(static_cast<float>(i) * 0.0005F);
        from.push_back(0.25F * from.back());
    }
    Numbers to(from.size());
    fast.clipPairs(from.data(), 4000, to.data());
    for (std::size_t i = 0; i < from.size(); i += 2) {
        const double expected = softClipSample(static_cast<double>(from[i]));
        ASSERT_NEAR(static_cast<double>(to[i]), expected, 4e-7) << from[i];
        ASSERT_NEAR(static_cast<double>(to[i + 1]), expected / 4, 2e-7) << from[i];
    }
}

TEST_P(KestrixKernelSets, NoClippedSampleExceedsFullScale) {
    const Numbers from = numbers(20'000, 4.0F);
    Numbers to(from.size());
    fast.clipPairs(from.data(), 10'000, to.data());
    for (std::size_t i = 0; i < to.size(); ++i) {
        ASSERT_LE(std::abs(to[i]), 1.0F + 1e-6F);
        ASSERT_LE(std::abs(to[i]), std::abs(from[i]) * (1.0F + 2e-7F)); // no factor lifts
    }
}

TEST_P(KestrixKernelSets, APeakOfZeroStaysSilent) {
    const Numbers from(16, 0.0F);
    Numbers to(16, 7.0F);
    fast.clipPairs(from.data(), 8, to.data());
    EXPECT_EQ(to, from);
}

TEST_P(KestrixKernelSets, QuietPairsStayAsTheyAreBesideLoudOnes) {
    Numbers from(32, 0.5F);
    from[6] = 1.2F; // one loud sample among sixteen pairs
    Numbers to(32);
    fast.clipPairs(from.data(), 16, to.data());
    for (std::size_t i = 0; i < 32; ++i) {
        if (i / 2 == 3) continue;
        EXPECT_EQ(to[i], 0.5F) << i;
    }
    EXPECT_LT(to[6], 1.0F);
    EXPECT_NEAR(to[7] / to[6], 0.5F / 1.2F, 1e-6F); // one factor for both
}

INSTANTIATE_TEST_SUITE_P(Sets, KestrixKernelSets,
                         testing::Values(&plainKestrixKernels, &sse2KestrixKernels,
                                         &avx2KestrixKernels),
                         [](const auto& set) { return std::string{set.param->name}; });

TEST(KestrixKernelChoice, TakesTheBestThatTheProcessorHas) {
    EXPECT_STREQ(kestrixKernels(0).name, "plain");
    EXPECT_STREQ(kestrixKernels(cpuFeature::sse2).name, "SSE2");
    EXPECT_STREQ(kestrixKernels(cpuFeature::sse2 | cpuFeature::avx2Fma).name, "AVX2");
}

} // namespace
} // namespace velorine::test
