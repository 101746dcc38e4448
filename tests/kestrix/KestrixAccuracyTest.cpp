#include "tests/kestrix/KestrixModel.h"
#include "tests/kestrix/KestrixRig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

namespace velorine::test {
namespace {

/// RMS of the difference to RMS of the output, dB.
double errorDb(const std::vector<float>& heard, const std::vector<double>& expected) {
    double error = 0.0;
    double power = 0.0;
    for (std::size_t i = 0; i < heard.size(); ++i) {
        const double difference = static_cast<double>(heard[i]) - expected[i];
        error += difference * difference;
        power += expected[i] * expected[i];
    }
    return 10.0 * std::log10(error / power);
}

/// Partials that swell and die away, with attacks: what music does to the detectors.
std::vector<float> musicPairs(int frames, int rate) {
    std::vector<float> pairs(static_cast<std::size_t>(frames) * 2);
    std::mt19937 generator{77};
    std::uniform_real_distribution<double> chance{0.0, 1.0};
    for (int note = 0; note < 12; ++note) {
        const double hz = 55.0 * std::pow(2.0, chance(generator) * 6.0);
        const double begin = chance(generator) * frames;
        const double pan = chance(generator);
        const double decay = 1.0 / (rate * (0.03 + 0.3 * chance(generator)));
        for (int i = static_cast<int>(begin); i < frames; ++i) {
            const double t = i - begin;
            double value = 0.0;
            for (int partial = 1; partial < 8 && partial * hz < 0.45 * rate; ++partial)
                value += std::sin(2.0 * std::numbers::pi * partial * hz * t / rate) / partial;
            value *= 0.35 * std::exp(-t * decay);
            pairs[static_cast<std::size_t>(2 * i)] += static_cast<float>(value * pan);
            pairs[static_cast<std::size_t>(2 * i + 1)] += static_cast<float>(value * (1.0 - pan));
        }
    }
    return pairs;
}

std::vector<float> sweepPairs(int frames, int rate) {
    std::vector<float> pairs;
    double phase = 0.0;
    for (int i = 0; i < frames; ++i) {
        const double hz = 20.0 * std::pow(0.45 * rate / 20.0, static_cast<double>(i) / frames);
        phase += 2.0 * std::numbers::pi * hz / rate;
        pairs.push_back(static_cast<float>(0.7 * std::sin(phase)));
        pairs.push_back(static_cast<float>(0.6 * std::cos(phase)));
    }
    return pairs;
}

KestrixParameters randomSettings(unsigned seed) {
    std::mt19937 generator{seed};
    const auto between = [&](double low, double high) {
        return std::uniform_real_distribution<double>{low, high}(generator);
    };
    KestrixParameters p;
    for (double& gain : p.eq)
        gain = std::pow(10.0, between(-0.3, 0.3));
    for (double& delay : p.del)
        delay = between(-0.003, 0.003);
    double edge = 0.0;
    for (auto& band : p.band) {
        band.low = edge;
        band.high = edge + between(30.0, 900.0);
        edge = band.high + between(0.0, 1500.0);
    }
    for (auto& trans : p.trans)
        trans = {between(0.0, 1.0), between(0.0, 1.0), between(0.0, 1.0)};
    for (int i = 0; i <= globalOffset; ++i) {
        p.atten[i] = between(-6.0, 6.0);
        p.lim[i] = between(-4.0, 3.0);
        p.compr[i] = between(-0.5, 0.6);
        p.comprlim[i] = between(-24.0, 0.0);
    }
    p.headroom = between(0.0, 12.0);
    p.eqall = between(0.5, 1.9);
    p.magnitude = between(0.0, 1.0);
    p.softclip = seed % 2 == 0;
    p.enabletrans = seed % 3 != 0;
    p.bandEnabled[seed % kestrixBands] = false;
    return p;
}

class KestrixAccuracy : public testing::TestWithParam<int> {
protected:
    void expectModelWithin(const KestrixParameters& parameters, const std::string& name) {
        const int rate = GetParam();
        const int frames = rate * 45 / 100;
        for (const auto& [material, pairs] : {std::pair{"noise", noisePairs(frames, 0.8F, 3)},
                                              std::pair{"music", musicPairs(frames, rate)},
                                              std::pair{"sweep", sweepPairs(frames, rate)}}) {
            KestrixRig rig{parameters};
            rig.feed(pairs, rate);
            const std::vector<float> heard = rig.run();
            KestrixModel model{parameters, static_cast<double>(rate)};
            const std::vector<double> expected = model.process(pairs);
            ASSERT_EQ(heard.size(), expected.size());
            ASSERT_GT(heard.size(), 2U * 3U * static_cast<unsigned>(model.hop));
            EXPECT_LT(errorDb(heard, expected), -110.0) << name << ", " << material;
        }
    }
};

TEST_P(KestrixAccuracy, AgreesWithTheModelAtTheFactoryTuning) {
    expectModelWithin(factorySettings(), "factory");
}

TEST_P(KestrixAccuracy, AgreesWithTheModelAtTheBuiltInValues) {
    expectModelWithin(KestrixParameters{}, "built in");
}

TEST_P(KestrixAccuracy, AgreesWithTheModelAtRandomValues) {
    for (unsigned seed = 1; seed <= 3; ++seed)
        expectModelWithin(randomSettings(seed), "random " + std::to_string(seed));
}

INSTANTIATE_TEST_SUITE_P(Rates, KestrixAccuracy,
                         testing::Values(22050, 32000, 44100, 48000, 96000, 192000));

} // namespace
} // namespace velorine::test
