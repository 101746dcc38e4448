#include "stages/resample/ResampleKernels.h"
#include "foundation/CpuFeatures.h"
#include "foundation/Mt19937.h"
#include "stages/resample/ResampleFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace velorine::test {
namespace {

/// A window of input and what one run makes of it.
struct Bench {
    Bench(int accuracy, double ratio, int outputFrames, double peak, double rolloff = 0.45)
        : frames(outputFrames) {
        filter.accuracy = accuracy;
        filter.rolloff = rolloff;
        filter.setRatio(ratio);
        filter.design();
        step = FxPos::fromDouble(ratio);
        windowFrames = 2 * filter.taps + 8 + static_cast<int>(std::ceil(frames * ratio + 1));
        std::mt19937 generator{3};
        std::uniform_real_distribution<double> sample{-peak, peak};
        for (int i = 0; i < 2 * windowFrames; ++i)
            window.push_back(static_cast<std::int32_t>(std::lround(sample(generator) * 0x1p31)));
    }

    std::vector<std::int32_t> run(const ResampleKernel& kernel, int shift = 0) {
        std::vector<std::int32_t> out(static_cast<std::size_t>(frames) * 2 + 4, 0x5A5A5A5A);
        // Memory that was used before holds anything, such as no number at all.
        std::vector<double> scratch(static_cast<std::size_t>(windowFrames + 16) * 2);
        std::memset(scratch.data(), 0xFF, scratch.size() * sizeof(double));
        ResampleRun job{};
        job.filter = &filter;
        job.window = window.data();
        job.windowFrames = windowFrames;
        job.firstTap = 4;
        job.position = position;
        job.step = step;
        job.frames = frames;
        job.to = out.data();
        job.scratch = scratch.data();
        const double fullScale = std::ldexp(1.0, 31 - shift);
        job.gain = (fullScale - 1.0) / fullScale / std::ldexp(1.0, shift);
        job.shift = shift;
        job.dither = &dither;
        kernel.run(job);
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(out[static_cast<std::size_t>(2 * frames + i)], 0x5A5A5A5A);
        out.resize(static_cast<std::size_t>(frames) * 2);
        return out;
    }

    /// The four sums of each frame in extended precision, unclamped.
    std::vector<double> exact() const {
        std::vector<double> out;
        FxPos place{0, position.frac};
        for (int i = 0; i < frames; ++i) {
            const long double fraction = std::ldexp(static_cast<long double>(place.frac), -64);
            const long double u = (1.0L - fraction) * filter.tableRows;
            const int row = static_cast<int>(u);
            const long double t = u - row;
            for (int channel = 0; channel < 2; ++channel) {
                long double sums[4] = {};
                for (int term = 0; term < 4; ++term)
                    for (int j = 0; j < 2 * filter.taps; ++j)
                        sums[term] +=
                            static_cast<long double>(
                                filter.row(row)[ResampleFilter::place(term, j)]) *
                            window[static_cast<std::size_t>(2 * (4 + place.whole + j) + channel)];
                out.push_back(
                    static_cast<double>((2147483647.0L / 2147483648.0L) *
                                        (((sums[0] * t + sums[1]) * t + sums[2]) * t + sums[3])));
            }
            place += step;
        }
        return out;
    }

    ResampleFilter filter;
    FxPos position;
    FxPos step;
    int frames;
    int windowFrames = 0;
    std::vector<std::int32_t> window;
    Mt19937 dither{1};
};

/// RMS of the difference, re full scale.
double errorDb(const std::vector<std::int32_t>& got, const std::vector<double>& expected) {
    double sum = 0.0;
    for (std::size_t i = 0; i < got.size(); ++i)
        sum += std::pow((got[i] - expected[i]) * 0x1p-31, 2.0);
    return 10.0 * std::log10(sum / static_cast<double>(got.size()) + 1e-30);
}

class ResampleKernelForm : public testing::TestWithParam<const ResampleKernel*> {
protected:
    void SetUp() override {
        const std::uint32_t runs = kernel.features & ~cpuFeature::amd3dNow; // plain code
        if (!covers(cpuFeatures(), runs)) GTEST_SKIP() << "not on this processor";
    }
    bool isSingle() const { return kernel.number == 1 || kernel.number == 4; }

    const ResampleKernel& kernel = *GetParam();
};

TEST_P(ResampleKernelForm, AgreesWithTheFourSums) {
    for (const double ratio : {44100.0 / 48000, 48000.0 / 44100, 2.0, 0.5, 1.0, 3.7}) {
        for (const int accuracy : {16, 24}) {
            Bench bench{accuracy, ratio, 400, 0.501187}; // -6 dBFS
            bench.position.frac = 0x9E3779B97F4A7C15;
            // The dither of kernel 3 is a bit of 32.
            EXPECT_LT(errorDb(bench.run(kernel), bench.exact()), isSingle() ? -136.0 : -180.0)
                << "ratio " << ratio << ", accuracy " << accuracy;
        }
    }
}

TEST_P(ResampleKernelForm, EveryTailLengthAndCount) {
    for (int accuracy = 4; accuracy <= 32; ++accuracy) {
        Bench bench{accuracy, 0.9, 1 + accuracy % 7, 0.5};
        const double limit = isSingle() ? -136.0 : -178.0;
        ASSERT_LT(errorDb(bench.run(kernel), bench.exact()), limit) << bench.filter.taps;
    }
}

TEST_P(ResampleKernelForm, WhatLiesBehindTheWindowIsNotHeard) {
    for (int percent = 30; percent < 90; percent += 2) { // 14 to 80 taps, of each remainder
        for (int frames = 128; frames < 144; ++frames) { // the window ends anywhere in a group
            Bench bench{16, 0.53125, frames, 0.25, percent / 100.0};
            bench.position.frac = ~std::uint64_t{0} << 60; // taps as late as they come
            ASSERT_LT(errorDb(bench.run(kernel), bench.exact()), isSingle() ? -136.0 : -180.0)
                << bench.filter.taps << " taps, " << frames << " frames";
        }
    }
}

TEST_P(ResampleKernelForm, ClampsAndNeverWraps) {
    Bench bench{16, 44100.0 / 48000, 500, 1.0};
    for (std::size_t i = 0; i < bench.window.size(); ++i) // a square at full scale
        bench.window[i] = (i / 2) % 40 < 20 ? 0x7FFFFFFF : -0x7FFFFFFF - 1;
    const std::vector<std::int32_t> out = bench.run(kernel);
    const std::vector<double> exact = bench.exact();
    int clipped = 0;
    for (std::size_t i = 0; i < out.size(); ++i) {
        const double expected = std::clamp(exact[i], -0x1p31, 0x1p31 - 1.0);
        ASSERT_NEAR(out[i], expected, isSingle() ? 1500.0 : 2.0) << i;
        if (expected != exact[i]) ++clipped;
    }
    EXPECT_GT(clipped, 20);
}

TEST_P(ResampleKernelForm, NoFractionTakesTheExtraRow) {
    Bench bench{16, 1.0, 64, 0.5};
    EXPECT_EQ(bench.position.frac, 0U);
    EXPECT_LT(errorDb(bench.run(kernel), bench.exact()), isSingle() ? -136.0 : -180.0);
}

INSTANTIATE_TEST_SUITE_P(Kernels, ResampleKernelForm,
                         testing::Values(&singleAvx2Kernel, &singleSse2Kernel, &doubleAvx2Kernel,
                                         &doubleSse2Kernel, &ditherKernel, &pairsKernel),
                         [](const auto& form) {
                             std::string name;
                             for (const char c : std::string{form.param->name})
                                 if (std::isalnum(static_cast<unsigned char>(c)) != 0) name += c;
                             return name;
                         });

TEST(ResampleKernels, SingleAndDoubleAgree) {
    for (const double ratio : {0.5, 0.91875, 1.088, 2.0}) {
        Bench bench{16, ratio, 500, 1.0};
        const auto single = bench.run(singleSse2Kernel);
        const auto twice = bench.run(doubleSse2Kernel);
        for (std::size_t i = 0; i < single.size(); ++i)
            ASSERT_LE(std::abs(static_cast<double>(single[i]) - static_cast<double>(twice[i])),
                      512.0); // 2^-22 of full scale
    }
}

TEST(ResampleKernels, TheDitheringOneLeavesTheLowBitsEmpty) {
    Bench bench{16, 0.91875, 500, 0.5};
    const auto exact = bench.exact();
    const auto out = bench.run(ditherKernel, 16);
    for (std::size_t i = 0; i < out.size(); ++i) {
        ASSERT_EQ(out[i] & 0xFFFF, 0);
        ASSERT_NEAR(out[i], exact[i], 65536.0 * 2.6 + 70'000.0); // dither, rounding, headroom
    }
    EXPECT_LT(errorDb(out, exact), -92.0);
}

TEST(ResampleKernels, ChoiceFollowsTheOrder) {
    using namespace cpuFeature;
    const auto chosen = [](std::uint32_t features, bool needsDouble, bool reduced) {
        return std::string{resampleKernel(features, needsDouble, reduced).name};
    };
    EXPECT_EQ(chosen(sse | sse2 | avx2Fma, false, false), singleAvx2Kernel.name);
    EXPECT_EQ(chosen(sse | sse2 | avx2Fma, false, true), singleAvx2Kernel.name);
    EXPECT_EQ(chosen(sse | sse2, false, false), singleSse2Kernel.name);
    EXPECT_EQ(chosen(sse | sse2 | avx2Fma, true, false), doubleAvx2Kernel.name);
    EXPECT_EQ(chosen(sse | sse2, true, true), doubleSse2Kernel.name);
    EXPECT_EQ(chosen(amd3dNow, true, false), ditherKernel.name);
    EXPECT_EQ(chosen(amd3dNow, false, true), ditherKernel.name);
    EXPECT_EQ(chosen(0, false, false), ditherKernel.name);
    EXPECT_EQ(chosen(amd3dNow, false, false), pairsKernel.name);
    EXPECT_EQ(singleAvx2Kernel.number, 1);
    EXPECT_EQ(doubleSse2Kernel.number, 2);
    EXPECT_EQ(ditherKernel.number, 3);
    EXPECT_EQ(pairsKernel.number, 4);
}

} // namespace
} // namespace velorine::test
