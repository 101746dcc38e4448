#include "kestrix/SoftClip.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

TEST(SoftClip, FollowsItsCurve) {
    EXPECT_NEAR(softClipSample(0.75), 0.748194455, 1e-9);
    EXPECT_NEAR(softClipSample(0.8), 0.791393373, 1e-9);
    EXPECT_NEAR(softClipSample(0.9), 0.863240236, 1e-9);
    EXPECT_NEAR(softClipSample(1.0), 0.917275935, 1e-9);
    EXPECT_NEAR(softClipSample(1.1), 0.955742177, 1e-9);
    EXPECT_NEAR(softClipSample(1.2), 0.980937130, 1e-9);
    EXPECT_NEAR(softClipSample(1.4125), 0.999999999, 1e-9);
}

TEST(SoftClip, LeavesWhatIsBelowMinusThreeDbAlone) {
    EXPECT_EQ(softClipSample(0.0), 0.0);
    EXPECT_EQ(softClipSample(1e-5), 1e-5); // its square is below all logarithms
    EXPECT_EQ(softClipSample(0.5), 0.5);
    EXPECT_EQ(softClipSample(0.70794), 0.70794);
}

TEST(SoftClip, AFullScaleInputLeavesThreeQuartersOfADbBelow) {
    EXPECT_NEAR(softClipSample(1.0), 0.9172759353897796, 1e-12); // 10^(-0.75 / 20)
}

TEST(SoftClip, IsFlatAtFullScaleFromThreeDbOn) {
    EXPECT_NEAR(softClipSample(1.41254), 1.0, 1e-12);
    EXPECT_NEAR(softClipSample(100.0), 1.0, 1e-12);
}

} // namespace
} // namespace velorine::test
