#include "foundation/FxPos.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace velorine::test {

namespace {

constexpr std::uint64_t half = std::uint64_t{1} << 63;

TEST(FxPos, SplitsADoubleAtTheFloor) {
    EXPECT_EQ(FxPos::fromDouble(2.5), (FxPos{2, half}));
    EXPECT_EQ(FxPos::fromDouble(-0.25), (FxPos{-1, 3 * (half / 2)}));
    EXPECT_EQ(FxPos::fromDouble(0.0), (FxPos{0, 0}));
    EXPECT_EQ(FxPos::fromDouble(-7.0), (FxPos{-7, 0}));
    EXPECT_EQ(FxPos::fromDouble(0x1p52 + 1), (FxPos{(std::int64_t{1} << 52) + 1, 0}));
    EXPECT_EQ(FxPos::fromFrame(-3), (FxPos{-3, 0}));
}

TEST(FxPos, FractionIsUnsignedInADouble) {
    EXPECT_EQ((FxPos{2, half}).toDouble(), 2.5);
    EXPECT_EQ((FxPos{-1, 3 * (half / 2)}).toDouble(), -0.25);
    EXPECT_EQ((FxPos{0, half + half / 2}).toDouble(), 0.75);
}

TEST(FxPos, DoublesComeBack) {
    std::mt19937_64 random{1};
    std::uniform_real_distribution<double> mantissa{-1.0, 1.0};
    for (int i = 0; i < 100'000; ++i) {
        const double value = std::ldexp(mantissa(random), static_cast<int>(random() % 90) - 60);
        const double back = FxPos::fromDouble(value).toDouble();
        EXPECT_LE(std::abs(back - value), 0x1p-52) << value;
    }
}

TEST(FxPos, JustBelowAWholeNumberIsNotAFrameAway) {
    for (const double value : {-1e-20, -0x1p-60, -0x1p-1000}) {
        const FxPos pos = FxPos::fromDouble(value);
        EXPECT_NEAR(pos.toDouble(), 0.0, 0x1p-52);
        EXPECT_EQ(pos.ceil(), 0);
        EXPECT_EQ(pos.toFixed(), 0);
    }
}

TEST(FxPos, CeilingOfAWholePositionIsItself) {
    for (const std::int64_t frame : {std::int64_t{-5}, std::int64_t{0}, std::int64_t{1} << 40}) {
        EXPECT_EQ(FxPos::fromFrame(frame).ceil(), frame);
        EXPECT_EQ((FxPos{frame, 1}).ceil(), frame + 1);
        EXPECT_EQ((FxPos{frame, ~std::uint64_t{0}}).ceil(), frame + 1);
    }
    EXPECT_EQ(FxPos::fromDouble(-0.25).ceil(), 0);
}

TEST(FxPos, FixedPointIsRoundedAndMayCarry) {
    EXPECT_EQ((FxPos{0, half}).toFixed(), 32'768);
    EXPECT_EQ((FxPos{0, ~std::uint64_t{0}}).toFixed(), 65'536);
    EXPECT_EQ((FxPos{5, ~std::uint64_t{0}}).toFixed(), 6 * 65'536);
    EXPECT_EQ((FxPos{-1, half}).toFixed(), -32'768);
    const std::uint64_t step = std::uint64_t{1} << 48; // of the fixed point
    EXPECT_EQ((FxPos{0, step}).toFixed(), 1);
    EXPECT_EQ((FxPos{0, step / 2}).toFixed(), 1);
    EXPECT_EQ((FxPos{0, step / 2 - 1}).toFixed(), 0);
    EXPECT_EQ((FxPos{0, ~std::uint64_t{0} - step / 2}).toFixed(), 65'535);
}

TEST(FxPos, FixedPointStaysWithinHalfAStep) {
    std::mt19937_64 random{2};
    for (int i = 0; i < 100'000; ++i) {
        const FxPos pos{static_cast<std::int64_t>(random() % 2'000'000) - 1'000'000, random()};
        const double fixed = static_cast<double>(pos.toFixed()) / 65'536.0;
        EXPECT_LE(std::abs(fixed - pos.toDouble()), 0x1p-17 + 0x1p-32);
    }
}

TEST(FxPos, ManyStepsAreTheSameAsOneTimesTheirNumber) {
    for (const FxPos& step : {FxPos{0, 1}, FxPos{3, 0xFFFFFFFFFFFFFFFF}, FxPos::fromDouble(0.91875),
                              FxPos::fromDouble(-1.75), FxPos{7, 0}}) {
        FxPos sum;
        for (std::uint32_t n = 0; n < 700; ++n) {
            ASSERT_EQ(step * n, sum) << n;
            sum += step;
        }
    }
}

TEST(FxPos, SumsCarry) {
    EXPECT_EQ((FxPos{1, half} + FxPos{2, half}), (FxPos{4, 0}));
    EXPECT_EQ((FxPos{-1, half} + FxPos{0, half / 2}), (FxPos{-1, half + half / 2}));
    FxPos sum;
    for (int i = 0; i < 1000; ++i)
        sum += FxPos{0, half / 2};
    EXPECT_EQ(sum, FxPos::fromFrame(250));
}

TEST(FxPos, DifferencesBorrow) {
    EXPECT_EQ((FxPos{4, 0} - FxPos{2, half}), (FxPos{1, half}));
    EXPECT_EQ((FxPos{0, 0} - FxPos{0, 1}), (FxPos{-1, ~std::uint64_t{0}}));
    const FxPos step = FxPos::fromDouble(0.91875);
    EXPECT_EQ((FxPos{17, 5} + step * 2'640) - step * 2'640, (FxPos{17, 5}));
}

} // namespace

} // namespace velorine::test
