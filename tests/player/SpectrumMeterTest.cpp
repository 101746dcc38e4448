#include "player/SpectrumMeter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace velorine::test {
namespace {

std::vector<float> sine(int frames, double bin, double left, double right) {
    std::vector<float> pairs;
    for (int i = 0; i < frames; ++i) {
        const double value =
            std::sin(2.0 * std::numbers::pi * bin * i / SpectrumMeter::frameLength);
        pairs.push_back(static_cast<float>(left * value));
        pairs.push_back(static_cast<float>(right * value));
    }
    return pairs;
}

double sumAround(const std::vector<double>& power, int bin) {
    double sum = 0.0;
    for (int k = bin - 3; k <= bin + 3; ++k)
        sum += power[static_cast<std::size_t>(k)];
    return sum;
}

TEST(SpectrumMeter, AFullScaleSineInBothChannelsIsOne) {
    SpectrumMeter meter;
    meter.feed(sine(40'000, 700.3, 1.0, 1.0));
    EXPECT_NEAR(sumAround(meter.power(), 700), 1.0, 2e-3);
    EXPECT_LT(meter.power()[1500], 1e-8);
}

TEST(SpectrumMeter, OneChannelIsHalf) {
    SpectrumMeter meter;
    meter.feed(sine(40'000, 700.0, 0.0, 1.0));
    EXPECT_NEAR(sumAround(meter.power(), 700), 0.5, 1e-3);
}

TEST(SpectrumMeter, PiecesMakeNoDifference) {
    const std::vector<float> pairs = sine(30'000, 55.0, 0.4, 0.7);
    SpectrumMeter whole;
    whole.feed(pairs);
    SpectrumMeter pieces;
    for (std::size_t at = 0; at < pairs.size();) {
        const std::size_t length = std::min<std::size_t>(2 * (1 + at % 4001), pairs.size() - at);
        pieces.feed({pairs.data() + at, length});
        at += length;
    }
    EXPECT_EQ(whole.power(), pieces.power());
}

TEST(SpectrumMeter, LessThanAFrameHasNoSpectrum) {
    SpectrumMeter meter;
    meter.feed(sine(SpectrumMeter::frameLength - 1, 9.0, 1.0, 1.0));
    EXPECT_TRUE(meter.power().empty());
}

} // namespace
} // namespace velorine::test
