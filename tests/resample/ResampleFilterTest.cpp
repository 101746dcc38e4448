#include "stages/resample/ResampleFilter.h"
#include "stages/resample/BesselI.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

namespace velorine::test {
namespace {

/// Power series of the modified Bessel function, which converges for all arguments used here.
double seriesI(int order, double x) {
    double term = order == 0 ? 1.0 : x / 2.0;
    double sum = term;
    for (int k = 1; k < 400; ++k) {
        term *= x * x / 4.0 / k / (k + order);
        sum += term;
    }
    return sum;
}

TEST(Bessel, BothOrdersFollowTheirSeries) {
    for (double x = 0.0; x < 30.0; x += 0.037) {
        EXPECT_NEAR(besselI0(x) / seriesI(0, x), 1.0, 3e-7) << x;
        EXPECT_NEAR(besselI1(x), seriesI(1, x), 1e-6 * seriesI(1, x)) << x;
    }
    EXPECT_EQ(besselI0(0.0), 1.0);
    EXPECT_EQ(besselI1(0.0), 0.0);
}

struct Row {
    double ratio, rate;
    int accuracy;
    double rolloff;
    double stopband;
    int tableRows, taps, rowStride;
    bool needsDouble;
};

class DesignRow : public testing::TestWithParam<Row> {};

TEST_P(DesignRow, IsThatOfTheTable) {
    const Row& row = GetParam();
    ResampleFilter filter;
    filter.accuracy = row.accuracy;
    filter.rolloff = row.rolloff;
    filter.rate = row.rate;
    filter.setRatio(row.ratio);
    filter.design();
    EXPECT_NEAR(filter.stopband, row.stopband, 1e-6);
    EXPECT_EQ(filter.tableRows, row.tableRows);
    EXPECT_EQ(filter.taps, row.taps);
    EXPECT_EQ(filter.halfLength, row.taps);
    EXPECT_EQ(filter.rowStride, row.rowStride);
    EXPECT_EQ(filter.needsDouble, row.needsDouble);
}

INSTANTIATE_TEST_SUITE_P(
    Designs, DesignRow,
    testing::Values(Row{1.0, 48000, 16, 0.45, 131, 19, 18, 36, false},
                    Row{0.5, 48000, 16, 0.45, 131, 19, 18, 36, false}, // designs as 1
                    Row{1.0, 44100, 16, 0.45, 130.633233, 19, 18, 36, false},
                    Row{48000.0 / 44100, 44100, 16, 0.45, 130.633233, 19, 18, 36, false},
                    Row{2.0, 48000, 16, 0.45, 131, 19, 19, 40, false},
                    Row{4.0, 48000, 16, 0.45, 131, 19, 38, 76, false},
                    Row{96000.0 / 44100, 44100, 16, 0.45, 130.633233, 19, 21, 44, false},
                    Row{1.25, 48000, 16, 0.45, 131, 19, 18, 36, false},
                    Row{1.0, 64000, 16, 0.45, 132.245112, 20, 18, 36, false},
                    Row{1.0, 96000, 16, 0.45, 134, 21, 18, 36, false},
                    Row{1.0, 192000, 16, 0.45, 137, 23, 19, 40, false},
                    Row{1.0, 48000, 8, 0.45, 83, 5, 11, 24, false},
                    Row{1.0, 48000, 12, 0.45, 107, 10, 14, 28, false},
                    Row{1.0, 48000, 17, 0.45, 137, 23, 19, 40, true},
                    Row{1.0, 48000, 20, 0.45, 155, 38, 21, 44, true},
                    Row{1.0, 48000, 24, 0.45, 179, 76, 25, 52, true},
                    Row{1.0, 48000, 32, 0.45, 227, 304, 31, 64, true},
                    Row{1.0, 48000, 16, 0.0, 131, 19, 10, 20, false},
                    Row{2.0, 48000, 16, 0.0, 131, 19, 19, 40, false},
                    Row{1.0, 48000, 16, 0.5, 131, 19, 19, 40, false},
                    Row{2.0, 48000, 16, 0.5, 131, 19, 19, 40, false},
                    Row{1.0, 48000, 16, 0.9, 131, 19, 95, 192, false},
                    Row{2.0, 48000, 16, 0.9, 131, 19, 95, 192, false}));

TEST(ResampleDesign, WithoutAccuracyTheStoredTargetsHold) {
    ResampleFilter filter;
    filter.accuracy = 0;
    filter.design();
    EXPECT_EQ(filter.stopband, 222.0);
    EXPECT_EQ(filter.tableRows, 32);
    EXPECT_EQ(filter.taps, 31);
    EXPECT_EQ(filter.rowStride, 64);
    filter.needsDouble = false;
    filter.redesign = true;
    filter.design();
    EXPECT_FALSE(filter.needsDouble); // accuracy 0 leaves it as it is
}

TEST(ResampleDesign, ALowAttenuationHasAWindowOfOne) {
    ResampleFilter filter;
    filter.accuracy = 0;
    filter.stopband = 10.0;
    filter.design();
    EXPECT_EQ(filter.taps, 2);
    // A sinc with its edge at fe = 1 - 0.9222 / 2 / 2.
    const double fe = 0.76945;
    const auto& table = filter.polynomials();
    const auto centre = static_cast<std::size_t>(filter.taps * filter.tableRows);
    const double peak = table[4 * centre + 3];
    for (int n = 1; n < 50; ++n) {
        const double phi = fe * std::numbers::pi * n / 32.0;
        EXPECT_NEAR(table[4 * (centre + static_cast<std::size_t>(n)) + 3] / peak,
                    std::sin(phi) / phi, 1e-12);
    }
}

TEST(ResampleDesign, DefaultTableByItsNumbers) {
    ResampleFilter filter;
    filter.design();
    const double* const centre = filter.polynomials().data() + 4 * 18 * 19;
    EXPECT_NEAR(centre[0], 2.93029e-06, 1e-10);
    EXPECT_NEAR(centre[1], -1.86959078e-03, 1e-10);
    EXPECT_EQ(centre[2], 0.0);
    EXPECT_NEAR(centre[3], 0.736822965, 1e-9);
    double sum = 0.0;
    for (int t = 0; t < 36; ++t)
        sum += filter.row(19)[ResampleFilter::place(3, t)];
    EXPECT_NEAR(sum, 1.0000000288, 1e-9);
}

TEST(ResampleDesign, RowsAreTheTableInOrderAndTheRestIsZero) {
    ResampleFilter filter;
    filter.accuracy = 0;
    filter.stopband = 100.0; // an odd number of taps
    filter.tableRows = 7;
    filter.design();
    ASSERT_GT(filter.rowStride, 2 * filter.taps - 1);
    for (int r = 0; r <= 7; ++r)
        for (int term = 0; term < 4; ++term)
            for (int t = 0; t < filter.rowStride; ++t) {
                const double value = filter.row(r)[ResampleFilter::place(term, t)];
                const double expected =
                    t < 2 * filter.taps
                        ? filter.polynomials()[static_cast<std::size_t>(4 * (7 * t + r) + term)]
                        : 0.0;
                ASSERT_EQ(value, expected);
                ASSERT_EQ(filter.rowFloat(r)[ResampleFilter::place(term, t)],
                          static_cast<float>(expected));
            }
}

TEST(ResampleDesign, FifteenTapsHaveAStrideOf32) {
    ResampleFilter filter;
    filter.accuracy = 0;
    filter.stopband = 113.0; // between those of 14 and 16
    filter.design();
    ASSERT_EQ(filter.taps, 15);
    EXPECT_EQ(filter.rowStride, 32);
    for (int term = 0; term < 4; ++term) {
        EXPECT_EQ(filter.row(3)[ResampleFilter::place(term, 30)], 0.0);
        EXPECT_EQ(filter.row(3)[ResampleFilter::place(term, 31)], 0.0);
    }
}

TEST(ResampleDesign, EachPieceMeetsTheNextInValueAndSlope) {
    ResampleFilter filter;
    filter.design();
    const auto& table = filter.polynomials();
    const double R = filter.tableRows;
    for (std::size_t k = 0; k + 2 < table.size() / 4; ++k) {
        const double* const a = table.data() + 4 * k;
        const double* const b = a + 4;
        ASSERT_NEAR(a[0] + a[1] + a[2] + a[3], b[3], 1e-9) << k;
        ASSERT_NEAR(3 * a[0] + 2 * a[1] + a[2], b[2], 1e-9) << k << " of " << R;
    }
}

TEST(ResampleDesign, DirectCurrentPassesAtEachPhase) {
    ResampleFilter filter;
    filter.design();
    for (int r = 0; r < filter.tableRows; ++r) {
        for (double t = 0.0; t < 1.0; t += 0.1) {
            double sum = 0.0;
            for (int j = 0; j < 2 * filter.taps; ++j) {
                const auto term = [&](int which) {
                    return filter.row(r)[ResampleFilter::place(which, j)];
                };
                sum += ((term(0) * t + term(1)) * t + term(2)) * t + term(3);
            }
            ASSERT_NEAR(sum, 1.0, 1e-7) << r << ", " << t;
        }
    }
}

TEST(ResampleDesign, ResponseAtSomeFrequencies) {
    const auto responseDb = [](const ResampleFilter& filter, double frequency) {
        // Sum over the table as one long filter, at `tableRows` times the rate.
        const auto& table = filter.polynomials();
        const int centre = filter.taps * filter.tableRows;
        double sum = 0.0;
        for (int k = 0; k <= 2 * centre; ++k)
            sum += table[static_cast<std::size_t>(4 * k + 3)] *
                   std::cos(std::numbers::pi * frequency * (k - centre) / filter.tableRows);
        return 20.0 * std::log10(std::abs(sum) / filter.tableRows);
    };
    ResampleFilter filter;
    filter.design();
    EXPECT_NEAR(responseDb(filter, 0.45), 0.0, 1e-4);
    EXPECT_NEAR(responseDb(filter, 0.5), -0.0002, 1e-4);
    EXPECT_NEAR(responseDb(filter, 0.6), -0.172, 1e-3);
    EXPECT_NEAR(responseDb(filter, 0.7), -3.049, 1e-3);
    EXPECT_NEAR(responseDb(filter, 0.7368), -6.020, 2e-3);
    EXPECT_NEAR(responseDb(filter, 0.9), -44.28, 0.01);
    EXPECT_LT(responseDb(filter, 1.0), -138.0);
    for (double f = 1.05; f < 3.0; f += 0.01)
        ASSERT_LT(responseDb(filter, f), -136.0) << f;
    filter.setRatio(2.0);
    filter.design();
    EXPECT_NEAR(responseDb(filter, 0.1), -0.065, 1e-3);
    EXPECT_NEAR(responseDb(filter, 0.25), -5.95, 0.01);
    EXPECT_NEAR(responseDb(filter, 0.4), -41.96, 0.01);
}

TEST(ResampleDesign, OnlyAChangeDesignsAnew) {
    ResampleFilter filter;
    filter.design();
    EXPECT_FALSE(filter.redesign);
    filter.setRatio(1.0);
    EXPECT_FALSE(filter.redesign);
    filter.setRatio(0.5); // another raw ratio, though the design is the same
    EXPECT_TRUE(filter.redesign);
    filter.design();
    filter.setRatio(0.5);
    EXPECT_FALSE(filter.redesign);
    filter.rate = 96000.0;
    filter.design();
    EXPECT_EQ(filter.tableRows, 21);
}

TEST(ResampleDesign, SettingsOutOfAllMeasureAreSurvived) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    for (const double value : {nan, -5.0, 1e30}) {
        for (int which = 0; which < 3; ++which) {
            ResampleFilter filter;
            filter.accuracy = which == 2 ? 100'000 : 0;
            if (which == 0) filter.rolloff = value;
            if (which == 1) filter.stopband = value;
            filter.tableRows = 3;
            filter.setRatio(200.0);
            filter.design();
            EXPECT_GT(filter.taps, 0);
            EXPECT_TRUE(std::isfinite(filter.row(1)[ResampleFilter::place(3, filter.taps)]));
        }
    }
}

} // namespace
} // namespace velorine::test
