#include "stages/FadeRamp.h"

#include "foundation/SampleFormat.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

namespace velorine::test {
namespace {

template <typename Sample>
constexpr int typeOf = std::is_same_v<Sample, std::int16_t>   ? sampleType::int16
                       : std::is_same_v<Sample, std::int32_t> ? sampleType::int32
                                                              : sampleType::float32;

struct Case {
    int channels;
    bool linear;
    bool oldSide;
    bool newSide;
    double scale;
};

template <typename Sample>
class FadeRampOf : public testing::Test {
protected:
    std::vector<Sample> noise(int count, std::uint32_t seed) {
        std::mt19937 random{seed};
        std::vector<Sample> samples;
        for (int i = 0; i < count; ++i) {
            if constexpr (std::is_floating_point_v<Sample>)
                samples.push_back(static_cast<Sample>(random()) / 2147483648.0f - 1.0f);
            else
                samples.push_back(static_cast<Sample>(random()));
        }
        return samples;
    }

    /// One sample of the mix, in long double; `t` by multiplication, not by adding up.
    static long double mixed(const Case& tested, long double t, Sample before, Sample after) {
        const long double a = tested.newSide ? static_cast<long double>(after) : 0;
        const long double b = tested.oldSide ? static_cast<long double>(before) : 0;
        const long double y =
            tested.linear ? (a - b) * t + b : a * std::sqrt(t) + b * std::sqrt(1 - t);
        return y * static_cast<long double>(tested.scale);
    }

    static long double clamped(long double y) {
        if constexpr (std::is_floating_point_v<Sample>)
            return y;
        else
            return std::clamp<long double>(y, std::numeric_limits<Sample>::min(),
                                           std::numeric_limits<Sample>::max());
    }

    /// Linear ramps are computed in single precision; integers are rounded besides.
    static long double tolerance(bool linear) {
        if constexpr (std::is_same_v<Sample, std::int16_t>)
            return linear ? 0.51L : 0.5001L;
        else if constexpr (std::is_same_v<Sample, std::int32_t>)
            return linear ? 700.0L : 0.7L; // 24 of 32 bits
        else
            return linear ? 4e-7L : 2e-7L;
    }
};

using Samples = testing::Types<std::int16_t, std::int32_t, float>;
TYPED_TEST_SUITE(FadeRampOf, Samples);

TYPED_TEST(FadeRampOf, AgreesWithTheFormula) {
    constexpr int frames = 1000;
    constexpr std::int64_t length = 7680;
    constexpr std::int64_t first = 2160;
    for (const int channels : {1, 2, 6})
        for (const bool linear : {false, true})
            for (const int sides : {1, 2, 3})
                for (const double scale : {1.0, 0.6, 0.0}) {
                    const Case tested{channels, linear, (sides & 1) != 0, (sides & 2) != 0, scale};
                    const auto before = this->noise(frames * channels, 12);
                    const auto after = this->noise(frames * channels, 13);
                    std::vector<TypeParam> out(before.size());
                    mixRamp({typeOf<TypeParam>, channels, frames,
                             tested.oldSide ? before.data() : nullptr,
                             tested.newSide ? after.data() : nullptr, out.data(), first, length,
                             linear, scale});
                    for (int i = 0; i < frames * channels; ++i) {
                        const int frame = i / channels;
                        const long double t =
                            (first + 0.5L) / length + frame * (1.0L / length) * 0.99995L;
                        const auto at = static_cast<std::size_t>(i);
                        ASSERT_NEAR(static_cast<double>(out[at]),
                                    static_cast<double>(this->clamped(
                                        this->mixed(tested, t, before[at], after[at]))),
                                    static_cast<double>(this->tolerance(linear)))
                            << channels << " channels, linear " << linear << ", sides " << sides
                            << ", scale " << scale << ", sample " << i;
                    }
                }
}

TYPED_TEST(FadeRampOf, MayMixIntoOneOfItsSides) {
    const auto before = this->noise(400, 14);
    const auto after = this->noise(400, 15);
    std::vector<TypeParam> apart(400);
    FadeRamp ramp{typeOf<TypeParam>, 2, 200, before.data(), after.data(),
                  apart.data(),      0, 200, false,         1.0};
    mixRamp(ramp);
    auto intoNew = after;
    ramp.newSide = ramp.out = intoNew.data();
    mixRamp(ramp);
    EXPECT_EQ(intoNew, apart);
    auto intoOld = before;
    ramp.newSide = after.data();
    ramp.oldSide = ramp.out = intoOld.data();
    mixRamp(ramp);
    EXPECT_EQ(intoOld, apart);
}

TYPED_TEST(FadeRampOf, NoFramesAreNoMix) {
    TypeParam untouched = 7;
    mixRamp({typeOf<TypeParam>, 2, 0, nullptr, nullptr, &untouched, 0, 100, false, 1.0});
    EXPECT_EQ(untouched, 7);
}

TEST(FadeRampTest, ASpliceOfOneFrameHearsBothSidesAlike) {
    const float before = 1.0f;
    const float after = 2.0f;
    float out = 0;
    FadeRamp ramp{sampleType::float32, 1, 1, &before, &after, &out, 0, 1, false, 1.0};
    mixRamp(ramp);
    EXPECT_NEAR(out, 3.0 * std::sqrt(0.5), 1e-6);
    ramp.linear = true;
    mixRamp(ramp);
    EXPECT_FLOAT_EQ(out, 1.5f);
}

TEST(FadeRampTest, IntegersAreRoundedToNearestAndClamped) {
    const std::int16_t before[] = {30'000, -30'000, 1, 3};
    const std::int16_t after[] = {30'000, -30'000, 0, 0};
    std::int16_t out[4] = {};
    mixRamp({sampleType::int16, 4, 1, before, after, out, 0, 1, false, 1.0});
    EXPECT_EQ(out[0], 32'767); // 42426
    EXPECT_EQ(out[1], -32'768);
    EXPECT_EQ(out[2], 1); // 0.707
    EXPECT_EQ(out[3], 2); // 2.121
}

TEST(FadeRampTest, FloatsAreNotClamped) {
    const float sides = 1.0f;
    float out = 0;
    mixRamp({sampleType::float32, 1, 1, &sides, &sides, &out, 0, 1, false, 1.0});
    EXPECT_NEAR(out, 1.41421, 1e-5);
}

TEST(FadeRampTest, EqualPowerKeepsThePowerOfUnrelatedSides) {
    constexpr int frames = 200'000;
    std::mt19937 random{16};
    std::normal_distribution<float> gauss;
    std::vector<float> before(frames);
    std::vector<float> after(frames);
    for (float& x : before)
        x = gauss(random);
    for (float& x : after)
        x = gauss(random);
    std::vector<float> out(frames);
    mixRamp({sampleType::float32, 1, frames, before.data(), after.data(), out.data(), 0, frames,
             false, 1.0});
    for (int part = 0; part < 10; ++part) {
        double power = 0;
        for (int i = part * frames / 10; i < (part + 1) * frames / 10; ++i)
            power += static_cast<double>(out[static_cast<std::size_t>(i)]) *
                     static_cast<double>(out[static_cast<std::size_t>(i)]);
        EXPECT_NEAR(power * 10 / frames, 1.0, 0.04) << part;
    }
}

TEST(FadeRampTest, TimeStaysBelowItsEndOverALongFade) {
    constexpr int frames = 3'000'000;
    const std::vector<float> sides(frames, 1.0f);
    std::vector<float> out(frames);
    mixRamp(
        {sampleType::float32, 1, frames, sides.data(), nullptr, out.data(), 0, frames, false, 1.0});
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](float x) { return x > 0.0f && x <= 1.0f; }));
}

} // namespace
} // namespace velorine::test
