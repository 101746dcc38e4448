#include "stages/convert/ConversionPlan.h"
#include "tests/convert/ConvertSupport.h"

#include <gtest/gtest.h>

namespace velorine {
namespace {

using Way = ConversionPlan::Way;

ConversionPlan dithered(int source, int destination, int layout = fullWidth) {
    return planConversion(formatOf(source, 2), formatOf(destination, 2, layout), true, false);
}

ConversionPlan shaped(int source, int destination, int layout = fullWidth) {
    return planConversion(formatOf(source, 2), formatOf(destination, 2, layout), true, true);
}

TEST(ConversionPlan, FloatLeavesRoomForTheDithersPeak) {
    EXPECT_EQ(dithered(5, 0).scale, 0.98828125);
    EXPECT_EQ(dithered(5, 1, 14).scale, 0.99981689453125);
    EXPECT_EQ(dithered(5, 1).scale, 0.9999542236328125);
    EXPECT_EQ(dithered(5, 1).scale, 32766.5 / 32768.0);
    EXPECT_EQ(dithered(5, 2, 20).scale, 0.9999971389770508);
    EXPECT_EQ(dithered(6, 2).scale, 0.9999998211860657);
    EXPECT_EQ(dithered(6, 4).scale, 0.9999999993015081);
}

TEST(ConversionPlan, FloatLeavesRoomForShapedNoise) {
    EXPECT_DOUBLE_EQ(shaped(5, 0).scale, 0.82953125);
    EXPECT_DOUBLE_EQ(shaped(5, 1, 14).scale, 0.99733642578125);
    EXPECT_DOUBLE_EQ(shaped(5, 1).scale, 0.9993341064453125);
    EXPECT_DOUBLE_EQ(shaped(5, 1).scale, (32767.5 - 21.32) / 32768.0);
    EXPECT_DOUBLE_EQ(shaped(5, 2, 20).scale, 0.999958381652832);
    EXPECT_DOUBLE_EQ(shaped(5, 2).scale, 0.999997398853302);
    EXPECT_DOUBLE_EQ(shaped(5, 4).scale, 0.9999999898392707);
    EXPECT_EQ(shaped(5, 0, 5).scale, 0.0);
}

TEST(ConversionPlan, IntegersAreBroughtToTheSameFullScale) {
    EXPECT_DOUBLE_EQ(dithered(1, 0).scale, 0.9883114108706931);
    EXPECT_DOUBLE_EQ(dithered(2, 1).scale, 0.9999543428366593);
    EXPECT_DOUBLE_EQ(dithered(4, 1).scale, 0.9999542240984525);
    EXPECT_DOUBLE_EQ(dithered(4, 2).scale, 0.9999998216517269);
    EXPECT_DOUBLE_EQ(dithered(3, 1).scale, 0.9999542231671725);
}

TEST(ConversionPlan, GainTakesFullScaleToValidLsbs) {
    EXPECT_EQ(dithered(5, 1).gain, 32766.5);
    EXPECT_EQ(dithered(5, 1, 14).gain, 8190.5);
    EXPECT_NEAR(32767 * dithered(1, 0).gain, 126.5000, 5e-5);
    EXPECT_NEAR(-32768 * dithered(1, 0).gain, -126.5039, 5e-5);
}

TEST(ConversionPlan, ThreeBitsScaleAsFiveAndShiftByFive) {
    const ConversionPlan plan = dithered(5, 0, 3);
    EXPECT_EQ(plan.shift, 5);
    EXPECT_EQ(plan.scale, 0.90625);
}

TEST(ConversionPlan, WithoutDitherNothingIsScaled) {
    for (const int source : {0, 1, 2, 3, 4, 5, 6})
        for (const int destination : {0, 1, 2, 3, 4})
            for (const bool shaping : {false, true})
                EXPECT_EQ(
                    planConversion(formatOf(source, 2), formatOf(destination, 1), false, shaping)
                        .scale,
                    1.0);
}

TEST(ConversionPlan, NoHeadroomWhereTheSourceFits) {
    const auto scale = [](int source, int in, int destination, int out, int layout = fullWidth) {
        return planConversion(formatOf(source, in), formatOf(destination, out, layout), true, false)
            .scale;
    };
    EXPECT_EQ(scale(1, 1, 1, 2), 1.0);
    EXPECT_LT(scale(1, 2, 1, 1), 1.0); // the sum of two takes a bit more
    EXPECT_EQ(scale(0, 2, 1, 1, 9), 1.0);
    EXPECT_LT(scale(0, 2, 1, 1, 8), 1.0);
    EXPECT_EQ(scale(3, 2, 4, 2), 1.0);
    EXPECT_LT(scale(3, 2, 2, 2), 1.0);
    EXPECT_EQ(scale(5, 2, 3, 2), 1.0); // type 3 has headroom of its own
}

TEST(ConversionPlan, LowBitsLeftOverTakeTheShapedLoopWithoutItsFilter) {
    const ConversionPlan plan = dithered(5, 1, 14);
    EXPECT_EQ(plan.way, Way::shape);
    EXPECT_FALSE(plan.shaperActive);
    EXPECT_EQ(plan.shift, 2);
    EXPECT_EQ(dithered(5, 1).way, Way::quantise);
    EXPECT_EQ(shaped(5, 1).way, Way::shape);
    EXPECT_TRUE(shaped(5, 1).shaperActive);
}

TEST(ConversionPlan, CopiesOnlyEqualFormatsAtFullWidth) {
    const SampleFormat format = formatOf(1, 2);
    EXPECT_EQ(planConversion(format, format, true, true).way, Way::copy);
    EXPECT_EQ(planConversion(format, formatOf(1, 2, 16), true, true).way, Way::copy);
    EXPECT_NE(planConversion(format, formatOf(1, 2, 15), true, true).way, Way::copy);
    EXPECT_NE(planConversion(format, formatOf(1, 1), true, true).way, Way::copy);
    EXPECT_NE(planConversion(format, {1, 2, 44100, fullWidth}, true, true).way, Way::copy);
    EXPECT_EQ(planConversion(formatOf(3, 2), formatOf(3, 2, 28), true, true).way, Way::copy);
    EXPECT_NE(planConversion(formatOf(3, 2), formatOf(3, 2, 27), true, true).way, Way::copy);
}

TEST(ConversionPlan, UnknownTypesAreCopiedOrLeft) {
    EXPECT_EQ(planConversion(formatOf(9, 2), formatOf(9, 2, 16), true, false).way, Way::copy);
    EXPECT_EQ(planConversion(formatOf(9, 2), formatOf(1, 2), true, false).way, Way::nothing);
    EXPECT_EQ(planConversion(formatOf(1, 2), formatOf(-1, 2), true, false).way, Way::nothing);
}

TEST(ConversionPlan, WideningIsExactWhileNothingHasToGo) {
    EXPECT_EQ(dithered(0, 1).gain, 256.0);
    EXPECT_EQ(dithered(1, 2).gain, 256.0);
    EXPECT_EQ(dithered(1, 4).gain, 65536.0);
    EXPECT_EQ(dithered(3, 4).gain, 256.0);
    EXPECT_EQ(dithered(0, 1, 8).way, Way::exact);
    EXPECT_EQ(shaped(0, 1, 8).way, Way::exact);
    EXPECT_EQ(dithered(0, 1, 7).way, Way::shape);
    EXPECT_EQ(planConversion(formatOf(1, 2), formatOf(2, 1), true, false).gain, 128.0);
    EXPECT_EQ(planConversion(formatOf(1, 2), formatOf(4, 1), true, false).gain, 32768.0);
}

TEST(ConversionPlan, FewerBitsThanTheSourceInAWiderContainerIsAlmostSilent) {
    const auto factor = [](int source, int destination, int layout) {
        const ConversionPlan plan =
            planConversion(formatOf(source, 2), formatOf(destination, 2, layout), false, false);
        return plan.gain * static_cast<double>(1 << plan.shift);
    };
    EXPECT_EQ(factor(0, 1, 7), 0x1p-24);
    EXPECT_EQ(factor(0, 2, 7), 0x1p-16);
    EXPECT_EQ(factor(0, 4, 7), 0x1p-8);
    EXPECT_EQ(factor(1, 2, 15), 0x1p-24);
    EXPECT_EQ(factor(1, 4, 15), 0x1p-16);
    EXPECT_EQ(factor(2, 4, 23), 0x1p-24);
}

TEST(ConversionPlan, Type3IsNeverShaped) {
    EXPECT_EQ(shaped(5, 3).way, Way::nothing);
    EXPECT_EQ(shaped(1, 3).way, Way::nothing);
    EXPECT_EQ(dithered(5, 3).way, Way::quantise);
    EXPECT_EQ(dithered(5, 3).gain, 8388608.0);
    EXPECT_EQ(dithered(5, 3, 24).way, Way::quantise);
    EXPECT_EQ(dithered(5, 3, 24).shift, 4);
}

TEST(ConversionPlan, FramesTooWideForTheShaperAreQuantised) {
    EXPECT_EQ(planConversion(formatOf(5, 16), formatOf(1, 16), true, true).way, Way::shape);
    EXPECT_EQ(planConversion(formatOf(5, 17), formatOf(1, 17), true, true).way, Way::quantise);
}

} // namespace
} // namespace velorine
