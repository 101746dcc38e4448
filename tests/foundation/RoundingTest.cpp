#include "foundation/Rounding.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace velorine::test {

namespace {

TEST(Rounding, TiesGoToEven) {
    EXPECT_EQ(roundToEven(0.5), 0);
    EXPECT_EQ(roundToEven(1.5), 2);
    EXPECT_EQ(roundToEven(2.5), 2);
    EXPECT_EQ(roundToEven(-0.5), 0);
    EXPECT_EQ(roundToEven(-1.5), -2);
    EXPECT_EQ(roundToEven(2.49999), 2);
    EXPECT_EQ(roundToEven(0x1p52 + 1.0), (std::int64_t{1} << 52) + 1);
}

TEST(Rounding, ScaledTiesGoAwayFromZero) {
    EXPECT_EQ(scaledRounded(1, 1, 2), 1);
    EXPECT_EQ(scaledRounded(3, 1, 2), 2);
    EXPECT_EQ(scaledRounded(-1, 1, 2), -1);
    EXPECT_EQ(scaledRounded(3, -1, 2), -2);
    EXPECT_EQ(scaledRounded(-3, -1, 2), 2);
    EXPECT_EQ(scaledRounded(1, 1, 3), 0);
    EXPECT_EQ(scaledRounded(2, 1, 3), 1);
    EXPECT_EQ(scaledRounded(-2, 1, 3), -1);
    EXPECT_EQ(scaledRounded(-1, 1, 3), 0);
}

TEST(Rounding, HalfOfAnOddDivisorIsCutOff) {
    EXPECT_EQ(scaledRounded(1, 5, 10), 1);
    EXPECT_EQ(scaledRounded(1, 5, 11), 0); // 5 + 5 of 11
    EXPECT_EQ(scaledRounded(1, 6, 11), 1); // 6 + 5 of 11
    EXPECT_EQ(scaledRounded(-1, 6, 11), -1);
    EXPECT_EQ(scaledRounded(7, 7, 1), 49);
}

TEST(Rounding, NothingDividesByNothing) {
    EXPECT_EQ(scaledRounded(5, 7, 0), 0);
}

TEST(ScaledRounded, ProductsBeyond64BitsStayRight) {
    // 2^31 - 1 frames a second over 77 hours: 2147483647 * 2769283680000 / 10^7 =
    // 594699141670398.1.
    EXPECT_EQ(scaledRounded(2'147'483'647, 2'769'283'680'000, 10'000'000), 594'699'141'670'398);
    EXPECT_EQ(scaledRounded(-2'147'483'647, 2'769'283'680'000, 10'000'000), -594'699'141'670'398);
    EXPECT_EQ(scaledRounded(INT64_MAX, 2, 4), 4'611'686'018'427'387'904);
    EXPECT_EQ(scaledRounded(INT64_MAX, INT64_MAX, 1), std::int64_t{1} << 62);
    EXPECT_EQ(scaledRounded(INT64_MAX, -INT64_MAX, 1), -(std::int64_t{1} << 62));
}

TEST(Rounding, HoursOfTimeAndFramesFitIn64Bits) {
    // one block of an hour at 192 kHz, its middle
    EXPECT_EQ(scaledRounded(36'000'000'000, 3'600 * 96'000 / 2, 3'600 * 96'000), 18'000'000'000);
}

} // namespace

} // namespace velorine::test
