#include "config/MemoryStore.h"
#include "config/RegistryNode.h"
#include "tests/resample/ResampleRig.h"

#include <gtest/gtest.h>

#include <array>
#include <complex>
#include <numbers>

namespace velorine::test {
namespace {

constexpr double pi = std::numbers::pi;

/// Left channel of what came out, -1 to 1, without the ends.
std::vector<double> middleOf(const std::vector<std::int32_t>& pairs) {
    std::vector<double> values;
    for (std::size_t i = 600; i + 600 < pairs.size(); i += 2)
        values.push_back(pairs[i] * 0x1p-31);
    return values;
}

/// A tone of one frequency, in cycles a frame, fitted in the sense of least squares.
struct Fit {
    double amplitude;
    double residualRms;
};

Fit fitTone(const std::vector<double>& values, double frequency) {
    // Normal equations of offset, sine and cosine.
    std::array<std::array<double, 4>, 3> m{};
    for (std::size_t i = 0; i < values.size(); ++i) {
        const double phase = 2.0 * pi * frequency * static_cast<double>(i);
        const double basis[3] = {1.0, std::sin(phase), std::cos(phase)};
        for (std::size_t r = 0; r < 3; ++r) {
            for (std::size_t c = 0; c < 3; ++c)
                m[r][c] += basis[r] * basis[c];
            m[r][3] += basis[r] * values[i];
        }
    }
    for (std::size_t p = 0; p < 3; ++p)
        for (std::size_t r = 0; r < 3; ++r) {
            if (r == p) continue;
            const double factor = m[r][p] / m[p][p];
            for (std::size_t c = p; c < 4; ++c)
                m[r][c] -= factor * m[p][c];
        }
    double x[3];
    for (std::size_t r = 0; r < 3; ++r)
        x[r] = m[r][3] / m[r][r];
    double sum = 0.0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const double phase = 2.0 * pi * frequency * static_cast<double>(i);
        const double rest = values[i] - x[0] - x[1] * std::sin(phase) - x[2] * std::cos(phase);
        sum += rest * rest;
    }
    return {std::hypot(x[1], x[2]), std::sqrt(sum / static_cast<double>(values.size()))};
}

double db(double ratio) {
    return 20.0 * std::log10(ratio);
}

void setAccuracy(ResampleStage& stage, int accuracy) {
    MemoryStore store;
    RegistryNode out{store, RegistryNode::write};
    stage.exchangeSettings(out);
    out.exchangeInt("Resample", "accuracy", accuracy);
    RegistryNode in{store, RegistryNode::read};
    stage.exchangeSettings(in);
}

struct Conversion {
    int from;
    double to;
};

/// Distortion and noise of a full-scale tone, re the tone.
double distortionDb(const Conversion& rates, double hz, int accuracy, std::uint32_t features) {
    ResampleRig rig{rates.to, 1.0, features};
    setAccuracy(rig.stage, accuracy);
    rig.feed(rates.from / 2, rates.from,
             [&](int i) { return 0.9999 * std::sin(2.0 * pi * hz * i / rates.from); });
    const double outRate = static_cast<double>(static_cast<float>(rates.to));
    const Fit fit = fitTone(middleOf(rig.run()), hz / outRate);
    return db(fit.residualRms / (fit.amplitude / std::sqrt(2.0)));
}

const Conversion conversions[] = {{44100, 48000.0},
                                  {48000, 96000.0},
                                  {96000, 44100.0},
                                  {44100, 48000.0 * 1.0090516338447}}; // 2^0.013

TEST(ResampleQuality, ToneAtFullScaleInSinglePrecision) {
    for (const Conversion& rates : conversions)
        for (const std::uint32_t features : {cpuFeature::sse2, cpuFeatures()})
            EXPECT_LT(distortionDb(rates, 997.0, 16, features), -134.0)
                << rates.from << " to " << rates.to;
}

TEST(ResampleQuality, ToneAtFullScaleInDoublePrecision) {
    for (const Conversion& rates : conversions)
        EXPECT_LT(distortionDb(rates, 997.0, 20, cpuFeatures()), -148.0)
            << rates.from << " to " << rates.to;
}

TEST(ResampleQuality, ThePassBandIsFlat) {
    for (const Conversion& rates : {conversions[0], conversions[1]}) {
        for (const double share : {0.001, 0.05, 0.2, 0.35, 0.45}) {
            const double hz = share * rates.from / 2.0;
            ResampleRig rig{rates.to};
            rig.feed(rates.from / 2, rates.from,
                     [&](int i) { return 0.7 * std::sin(2.0 * pi * hz * i / rates.from); });
            EXPECT_NEAR(db(fitTone(middleOf(rig.run()), hz / rates.to).amplitude / 0.7), 0.0, 0.001)
                << rates.from << " to " << rates.to << ", " << hz << " Hz";
        }
    }
}

TEST(ResampleQuality, AliasesAndImagesAreGone) {
    // Above the output's Nyquist frequency there is nothing to be heard of a tone.
    for (const double hz : {22'200.0, 25'000.0, 30'000.0, 40'000.0, 47'000.0}) {
        ResampleRig rig{44100.0};
        rig.feed(48'000, 96'000, [&](int i) { return 0.9 * std::sin(2.0 * pi * hz * i / 96'000); });
        double power = 0.0;
        const std::vector<double> rest = middleOf(rig.run());
        for (const double value : rest)
            power += value * value;
        EXPECT_LT(db(std::sqrt(power / static_cast<double>(rest.size()))), -136.0) << hz;
    }
    // And of many tones at once, which all pass, nothing but they comes out at twice the rate.
    ResampleRig rig{96'000.0};
    const double tones[] = {113.0, 997.0, 3011.0, 7001.0, 9901.0};
    rig.feed(48'000, 48'000, [&](int i) {
        double sum = 0.0;
        for (const double hz : tones)
            sum += 0.18 * std::sin(2.0 * pi * hz * i / 48'000);
        return sum;
    });
    std::vector<double> rest = middleOf(rig.run());
    for (int pass = 0; pass < 6; ++pass) // tones that aren't orthogonal are taken out in turns
        for (const double hz : tones) {
            std::complex<double> sum;
            for (std::size_t i = 0; i < rest.size(); ++i)
                sum += rest[i] * std::polar(1.0, -2.0 * pi * hz * static_cast<double>(i) / 96'000);
            sum *= 2.0 / static_cast<double>(rest.size());
            for (std::size_t i = 0; i < rest.size(); ++i)
                rest[i] -=
                    (sum * std::polar(1.0, 2.0 * pi * hz * static_cast<double>(i) / 96'000)).real();
        }
    double power = 0.0;
    for (const double value : rest)
        power += value * value;
    EXPECT_LT(db(std::sqrt(power / static_cast<double>(rest.size()))), -134.0);
}

TEST(ResampleQuality, ASweepKeepsItsLevel) {
    ResampleRig rig{48'000.0};
    double phase = 0.0;
    rig.feed(88'200, 44'100, [&](int i) {
        phase += 2.0 * pi * 20.0 * std::pow(450.0, i / 88'200.0) / 44'100; // to 9 kHz
        return 0.8 * std::sin(phase);
    });
    const std::vector<double> out = middleOf(rig.run());
    for (std::size_t from = 4000; from + 2000 < out.size(); from += 2000) {
        double power = 0.0;
        for (std::size_t i = from; i < from + 2000; ++i)
            power += out[i] * out[i];
        ASSERT_NEAR(std::sqrt(power / 1000.0), 0.8, 0.03) << from;
    }
}

} // namespace
} // namespace velorine::test
