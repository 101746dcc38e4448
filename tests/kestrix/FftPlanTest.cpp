#include "kestrix/FftPlan.h"
#include "foundation/AlignedArray.h"
#include "tests/kestrix/KestrixModel.h"

#include <gtest/gtest.h>

#include <random>
#include <thread>

namespace velorine::test {
namespace {

TEST(FftPlan, IsTheTransformOfTheModel) {
    AlignedArray<Complex> in;
    AlignedArray<Complex> out;
    in.resize(64);
    out.resize(64);
    FftPlan plan;
    plan.planComplex(64, in.data(), out.data(), FftDirection::forward);
    std::mt19937 generator{1};
    std::uniform_real_distribution<float> sample{-1.0F, 1.0F};
    std::vector<std::complex<double>> expected(64);
    for (int i = 0; i < 64; ++i) {
        in[i] = {sample(generator), sample(generator)};
        expected[static_cast<std::size_t>(i)] = in[i];
    }
    plan.execute(in.data(), out.data());
    transform(expected, -1);
    for (int i = 0; i < 64; ++i)
        EXPECT_LT(std::abs(expected[static_cast<std::size_t>(i)] - std::complex<double>(out[i])),
                  1e-5);
}

TEST(FftPlan, PlanningLeavesTheArraysAlone) {
    AlignedArray<Complex> in;
    AlignedArray<Complex> out;
    in.resize(256);
    out.resize(256);
    in[17] = out[18] = {3.0F, 4.0F};
    FftPlan plan;
    plan.planComplex(256, in.data(), out.data(), FftDirection::backward);
    EXPECT_EQ(in[17], Complex(3.0F, 4.0F));
    EXPECT_EQ(out[18], Complex(3.0F, 4.0F));
}

TEST(FftPlan, HoldersAreCountedForAsLongAsTheyStand) {
    const int before = FftPlannerUse::count();
    {
        const FftPlanHolder one;
        const FftPlanHolder other;
        EXPECT_EQ(FftPlannerUse::count(), before + 2);
        const FftPlan passing;
        EXPECT_EQ(FftPlannerUse::count(), before + 2);
    }
    EXPECT_EQ(FftPlannerUse::count(), before);
}

TEST(FftPlan, PlanningNestsInTheOneLock) {
    const FftPlanning outer;
    AlignedArray<Complex> in;
    AlignedArray<Complex> out;
    in.resize(32);
    out.resize(32);
    FftPlan plan;
    plan.planComplex(32, in.data(), out.data(), FftDirection::forward);
    plan.planComplex(32, out.data(), in.data(), FftDirection::backward); // replaces it
    in[1] = 0.0F;
    out[1] = 1.0F;
    plan.execute(out.data(), in.data());
    EXPECT_NEAR(in[8].imag(), 1.0F, 1e-6F); // e^(+2 pi i 8 / 32)
}

TEST(FftPlan, ThreadsMayPlanAtOnce) {
    const auto work = [] {
        for (int i = 0; i < 20; ++i) {
            AlignedArray<Complex> in;
            AlignedArray<Complex> out;
            in.resize(128);
            out.resize(128);
            FftPlanHolder plan;
            plan.planComplex(128, in.data(), out.data(), FftDirection::forward);
            in[0] = 1.0F;
            plan.execute(in.data(), out.data());
            EXPECT_NEAR(out[77].real(), 1.0F, 1e-6F);
        }
    };
    std::thread other{work};
    work();
    other.join();
}

} // namespace
} // namespace velorine::test
