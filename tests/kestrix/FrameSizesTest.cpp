#include "kestrix/FrameSizes.h"

#include <gtest/gtest.h>

#include <bit>

namespace velorine::test {
namespace {

struct Row {
    int rate, frameLen, fftLen, padLen, hop, warmUp;
};

class FrameSizesAt : public testing::TestWithParam<Row> {};

TEST_P(FrameSizesAt, AreThoseOfTheTable) {
    const Row& row = GetParam();
    const FrameSizes sizes = computeFrameSizes(static_cast<float>(row.rate));
    EXPECT_EQ(sizes.frameLen, row.frameLen);
    EXPECT_EQ(sizes.fftLen, row.fftLen);
    EXPECT_EQ(sizes.padLen, row.padLen);
    EXPECT_EQ(sizes.hop(), row.hop);
    EXPECT_EQ(sizes.warmUp(), row.warmUp);
}

INSTANTIATE_TEST_SUITE_P(Rates, FrameSizesAt,
                         testing::Values(Row{8000, 360, 1024, 664, 180, 1080},
                                         Row{11025, 496, 1024, 528, 248, 1240},
                                         Row{16000, 720, 2048, 1328, 360, 2160},
                                         Row{22050, 992, 2048, 1056, 496, 2480},
                                         Row{32000, 1440, 4096, 2656, 720, 4320},
                                         Row{44100, 1984, 4096, 2112, 992, 4960},
                                         Row{48000, 2160, 4096, 1936, 1080, 4320},
                                         Row{88200, 3968, 8192, 4224, 1984, 9920},
                                         Row{96000, 4320, 8192, 3872, 2160, 8640},
                                         Row{192000, 8640, 16384, 7744, 4320, 17280}));

TEST(FrameSizesOfAnyRate, AreAMultipleOfFourInAPowerOfTwo) {
    for (int rate = 1; rate < 400'000; rate += 7) {
        const FrameSizes sizes = computeFrameSizes(static_cast<float>(rate));
        ASSERT_EQ(sizes.frameLen % 4, 0) << rate;
        ASSERT_GT(sizes.hop(), 0) << rate;
        ASSERT_TRUE(std::has_single_bit(static_cast<unsigned>(sizes.fftLen))) << rate;
        ASSERT_EQ(sizes.padLen, sizes.fftLen - sizes.frameLen) << rate;
        ASSERT_GE(sizes.padLen, 0) << rate;
    }
}

TEST(FrameSizesOfAnyRate, ASumOfAPowerOfTwoStaysAtThatPower) {
    // 24096 Hz: 45 ms are 1084.3, 1084; 40 ms are 963.8, 964. Together 2048.
    const FrameSizes sizes = computeFrameSizes(24096.0F);
    EXPECT_EQ(sizes.frameLen, 1084);
    EXPECT_EQ(sizes.fftLen, 2048);
    EXPECT_EQ(sizes.padLen, 964);
}

TEST(FrameSizesOfAnyRate, RatesBeyondAllAudioStillGiveFrames) {
    for (const float rate : {-2e9F, 0.0F, 2e9F}) {
        const FrameSizes sizes = computeFrameSizes(rate);
        EXPECT_GE(sizes.frameLen, 4) << rate;
        EXPECT_LE(sizes.fftLen, 1 << 18) << rate;
    }
}

} // namespace
} // namespace velorine::test
