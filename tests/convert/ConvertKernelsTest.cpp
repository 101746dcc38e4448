#include "foundation/CpuFeatures.h"
#include "tests/convert/ConvertSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace velorine {
namespace {

constexpr std::array featureSets = {cpuFeature::avx2Fma, cpuFeature::avx2Fma | cpuFeature::avx512};

/// A converter with the kernels under test and one with the plain form, both from one seed.
class ConvertKernelSets : public testing::TestWithParam<std::uint32_t> {
protected:
    void SetUp() override {
        if (!covers(cpuFeatures(), GetParam())) GTEST_SKIP() << "not on this processor";
        ASSERT_STRNE(fast.kernelName(), plain.kernelName());
    }

    void setSwitches(bool dither, bool shaping) {
        fast.ditherOn = plain.ditherOn = dither;
        fast.shapingOn = plain.shapingOn = shaping;
    }

    testing::AssertionResult agree(const Bytes& source, const SampleFormat& from,
                                   const SampleFormat& to) {
        if (convertBytes(fast, source, from, to) == convertBytes(plain, source, from, to))
            return testing::AssertionSuccess();
        return testing::AssertionFailure()
               << "type " << from.type << " to " << to.type << ", " << to.channels
               << " channels, layout " << to.layout << ", shaping " << fast.shapingOn;
    }

    FixedEntropy entropy{99};
    SampleConverter fast{GetParam()};
    SampleConverter plain{0};
};

TEST_P(ConvertKernelSets, AgreeForEveryTailAndAddress) {
    constexpr std::size_t slack = 16;
    for (int source = 0; source <= 6; ++source) {
        for (int destination = 0; destination <= 6; ++destination) {
            for (const bool shaping : {false, true}) {
                setSwitches(true, shaping);
                const SampleFormat from = formatOf(source, 2);
                const SampleFormat to = formatOf(destination, 2);
                for (int frames = 1; frames <= 40; ++frames) {
                    const std::size_t offset = static_cast<std::size_t>(frames) % slack;
                    Bytes in(offset);
                    const Bytes noise = noiseBytes(source, 2 * frames, 7);
                    in.insert(in.end(), noise.begin(), noise.end());
                    Bytes fastOut(2 * slack + static_cast<std::size_t>(frames * bytesPerFrame(to)),
                                  0x77);
                    Bytes plainOut = fastOut;
                    const ConstFrameSpan span{in.data() + offset, frames, bytesPerFrame(from)};
                    const std::size_t place = slack - offset;
                    fast.convert(span, from, {fastOut.data() + place, frames, bytesPerFrame(to)},
                                 to);
                    plain.convert(span, from, {plainOut.data() + place, frames, bytesPerFrame(to)},
                                  to);
                    // The bytes around the frames are compared, too.
                    ASSERT_EQ(fastOut, plainOut) << "type " << source << " to " << destination
                                                 << ", shaping " << shaping << ", " << frames;
                }
            }
        }
    }
}

TEST_P(ConvertKernelSets, AgreeForEveryLayoutAndChannelCount) {
    for (const bool shaping : {false, true}) {
        setSwitches(true, shaping);
        for (const int destination : {0, 1, 2, 4})
            for (int layout = 1; layout <= bitsPerSample(destination); ++layout)
                for (const int channels : {1, 2, 3, 6, 15, 16})
                    ASSERT_TRUE(agree(noiseBytes(5, 139 * channels, 8), formatOf(5, channels),
                                      formatOf(destination, channels, layout)));
    }
}

TEST_P(ConvertKernelSets, AgreeOverALongRunOfDither) {
    // Long enough for samples next to a tie, which the short ways must notice.
    setSwitches(true, false);
    const Bytes source = noiseBytes(5, 50000, 31);
    for (int run = 0; run < 200; ++run)
        ASSERT_TRUE(agree(source, formatOf(5, 2), formatOf(1, 2)));
}

TEST_P(ConvertKernelSets, AgreeOverALongRunOfShapedNoise) {
    setSwitches(true, true);
    for (std::uint32_t seed = 0; seed < 20; ++seed)
        for (const int destination : {0, 1, 2})
            ASSERT_TRUE(
                agree(noiseBytes(5, 10000, seed), formatOf(5, 2), formatOf(destination, 2)));
}

TEST_P(ConvertKernelSets, AgreeOnTiesAndOnQuietAndLoudSamples) {
    for (const bool dither : {false, true}) {
        for (const bool shaping : {false, true}) {
            setSwitches(dither, shaping);
            // Half and whole LSBs of 16 bits; then levels from far below an LSB to far above.
            std::vector<double> values;
            std::mt19937 random{5};
            for (int i = 0; i < 4000; ++i)
                values.push_back((static_cast<int>(random() % 4096) - 2048) * 0.5 / 32768.0);
            for (int level = -60; level < 60; ++level)
                for (int i = 0; i < 40; ++i)
                    values.push_back(
                        std::ldexp(static_cast<double>(random()) * 0x1p-31 - 1.0, level));
            std::vector<float> floats(values.begin(), values.end());
            for (const int destination : {0, 1, 2, 3, 4}) {
                ASSERT_TRUE(agree(bytesOf(values), formatOf(6, 2), formatOf(destination, 2)));
                ASSERT_TRUE(agree(bytesOf(floats), formatOf(5, 2), formatOf(destination, 2)));
            }
        }
    }
}

TEST_P(ConvertKernelSets, AgreeOnWhatIsNoNumber) {
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    constexpr float infinity = std::numeric_limits<float>::infinity();
    for (const bool shaping : {false, true}) {
        setSwitches(true, shaping);
        for (int place = 0; place < 48; ++place) {
            for (const float odd : {nan, -nan, infinity, -infinity, 3e38f, 2.0f, -2.0f}) {
                auto values = samplesOf<float>(noiseBytes(5, 48, 3));
                values[static_cast<std::size_t>(place)] = odd;
                for (const int destination : {0, 1, 2, 4})
                    ASSERT_TRUE(agree(bytesOf(values), formatOf(5, 2), formatOf(destination, 2)));
                ASSERT_TRUE(agree(bytesOf(values), formatOf(5, 2), formatOf(1, 2, 3)));
            }
        }
    }
}

TEST_P(ConvertKernelSets, TakeTurnsWithThePlainFormOnOneState) {
    // Formats without a fast loop of their own come in between: 32 bits are shaped one by one.
    setSwitches(true, true);
    std::mt19937 random{21};
    for (int i = 0; i < 300; ++i) {
        const int destination = static_cast<int>(random() % 5);
        const int channels = 1 + static_cast<int>(random() % 4);
        const int frames = 1 + static_cast<int>(random() % 90);
        ASSERT_TRUE(agree(noiseBytes(5, frames * channels, static_cast<std::uint32_t>(i)),
                          formatOf(5, channels),
                          formatOf(destination == 3 ? 4 : destination, channels)));
    }
}

/// Stereo input on which the shaper's sum lies exactly `offset` beside a tie, in every frame: the
/// feedback is worked out from the results so far and taken off.
std::vector<double> inputNextToTies(int frames, double offset) {
    constexpr WordLimits limits{-32768.0, 32767.0, 32767, 32767, 0};
    constexpr std::array<double, 2> noDither{};
    const ShaperTaps taps = designShaperTaps();
    NoiseShaper shaper;
    std::array<std::vector<int>, 2> errors;
    std::vector<double> input;
    for (int frame = 0; frame < frames; ++frame) {
        std::array<double, 2> x;
        std::array<double, 2> sums;
        for (std::size_t channel = 0; channel < 2; ++channel) {
            const std::vector<int>& past = errors[channel];
            int feedback = 0;
            for (std::size_t back = 1; back <= std::min<std::size_t>(30, past.size()); ++back)
                feedback += past[past.size() - back] * taps.coefInt[30 - back];
            sums[channel] = frame % 7 - 3.5 + offset;
            x[channel] = sums[channel] - feedback * 0x1p-26;
        }
        std::array<std::int32_t, 2> result;
        shaper.shape(plainConvertKernels, {x.data(), noDither.data(), result.data(), 1, 2}, limits);
        for (std::size_t channel = 0; channel < 2; ++channel) {
            const auto error = static_cast<float>(sums[channel] - result[channel]);
            errors[channel].push_back(
                static_cast<int>(std::lrint(static_cast<double>(error) * 16384.0)));
            input.push_back(x[channel]);
        }
    }
    return input;
}

TEST_P(ConvertKernelSets, ShapeAlikeNextToTies) {
    constexpr WordLimits limits{-32768.0, 32767.0, 32767, 32767, 0};
    constexpr int frames = 120;
    for (const double offset : {0.0, 0x1p-40, -0x1p-40, 0x1p-27, -0x1p-27, 0x1p-26, -0x1p-26,
                                0x1.8p-26, -0x1.8p-26, 0x1p-25, -0x1p-25, 0x1p-15, -0x1p-15}) {
        const std::vector<double> x = inputNextToTies(frames, offset);
        const std::vector<double> noDither(x.size(), 0.0);
        std::vector<std::int32_t> fastResult(x.size());
        std::vector<std::int32_t> plainResult(x.size());
        NoiseShaper fastShaper;
        NoiseShaper plainShaper;
        fastShaper.shape(convertKernels(GetParam()),
                         {x.data(), noDither.data(), fastResult.data(), frames, 2}, limits);
        plainShaper.shape(plainConvertKernels,
                          {x.data(), noDither.data(), plainResult.data(), frames, 2}, limits);
        EXPECT_EQ(fastResult, plainResult) << "offset " << offset;
        // The input does what it is meant to: each sum lies just above or below a tie.
        for (std::size_t i = 0; i < plainResult.size() && offset != 0.0; ++i)
            ASSERT_EQ(plainResult[i], static_cast<int>(i / 2 % 7) - (offset > 0.0 ? 3 : 4)) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(AllKernels, ConvertKernelSets, testing::ValuesIn(featureSets));

} // namespace
} // namespace velorine
