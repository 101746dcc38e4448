#include "stages/convert/SampleConverter.h"
#include "tests/convert/ConvertSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

namespace velorine {
namespace {

constexpr int many = 20000;

/// Different results of a long run of one and the same frame.
template <typename T, typename S>
std::set<T> resultsOf(S sample, const SampleFormat& to, bool shaping = false, bool dither = true) {
    SampleConverter converter;
    converter.shapingOn = shaping;
    converter.ditherOn = dither;
    const int type = std::is_floating_point_v<S> ? 5 : sizeof(S) == 1 ? 0 : 1;
    const Bytes source = bytesOf(std::vector<S>(many, sample));
    const auto results = samplesOf<T>(convertBytes(converter, source, formatOf(type, 1), to));
    return {results.begin(), results.end()};
}

template <typename T, typename S>
std::vector<T> undithered(std::initializer_list<S> samples, const SampleFormat& from,
                          const SampleFormat& to) {
    SampleConverter converter;
    converter.ditherOn = false;
    return samplesOf<T>(convertBytes(converter, bytesOf(samples), from, to));
}

TEST(SampleConverter, IdentityFormatCopiesBytes) {
    SampleConverter converter;
    converter.shapingOn = true;
    for (int type = 0; type <= 6; ++type) {
        const Bytes source = noiseBytes(type, 200, 5);
        EXPECT_EQ(convertBytes(converter, source, formatOf(type, 2), formatOf(type, 2)), source);
    }
}

TEST(SampleConverter, IdentityFormatWithFewerValidBitsIsNoCopy) {
    SampleConverter converter;
    const Bytes source = noiseBytes(1, 2000, 6);
    const Bytes result = convertBytes(converter, source, formatOf(1, 2), formatOf(1, 2, 12));
    EXPECT_NE(result, source);
    for (const std::int16_t sample : samplesOf<std::int16_t>(result))
        EXPECT_TRUE((sample & 15) == 0 || sample == 32767) << sample;
}

TEST(SampleConverter, DitheredFullScaleNeverReachesClipping) {
    EXPECT_EQ(resultsOf<std::int16_t>(1.0f, formatOf(1, 1)),
              (std::set<std::int16_t>{32766, 32767}));
    EXPECT_EQ(resultsOf<std::int16_t>(-1.0f, formatOf(1, 1)),
              (std::set<std::int16_t>{-32767, -32766}));
}

TEST(SampleConverter, ShapedFullScaleNeverReachesClipping) {
    const auto high = resultsOf<std::int16_t>(1.0f, formatOf(1, 1), true);
    const auto low = resultsOf<std::int16_t>(-1.0f, formatOf(1, 1), true);
    EXPECT_LE(*high.rbegin(), 32767);
    EXPECT_GE(*low.begin(), -32768);
    // 32746.18, and the noise is spread about it
    EXPECT_GE(*high.begin(), 32746 - 22);
    EXPECT_GT(high.size(), 20u);
}

TEST(SampleConverter, WithoutDitherSamplesAreRoundedAndFullScaleClips) {
    constexpr float lsb = 1.0f / 32768.0f;
    const auto results =
        undithered<std::int16_t, float>({1.0f, -1.0f, 0.5f, 0.5f * lsb, 1.5f * lsb, 2.5f * lsb,
                                         -0.5f * lsb, -1.5f * lsb, 0.49f * lsb},
                                        formatOf(5, 1), formatOf(1, 1));
    EXPECT_EQ(results, (std::vector<std::int16_t>{32767, -32768, 16384, 0, 2, 2, 0, -2, 0}));
}

TEST(SampleConverter, FourteenBitsLeaveTheLowTwoZero) {
    EXPECT_EQ(resultsOf<std::int16_t>(1.0f, formatOf(1, 1, 14)),
              (std::set<std::int16_t>{8190 * 4, 8191 * 4}));
    for (const std::int16_t sample : resultsOf<std::int16_t>(0.37f, formatOf(1, 1, 14), true))
        EXPECT_EQ(sample & 3, 0);
}

TEST(SampleConverter, ReducedBitsClipAtTheContainersFullScale) {
    const auto results =
        undithered<std::int16_t, float>({1.0f, -1.0f, 2.0f}, formatOf(5, 1), formatOf(1, 1, 14));
    EXPECT_EQ(results, (std::vector<std::int16_t>{32767, -32768, 32767}));
}

TEST(SampleConverter, ThreeBitsOf8StepBy32) {
    for (const std::uint8_t sample : resultsOf<std::uint8_t>(0.6f, formatOf(0, 1, 3)))
        EXPECT_EQ((sample - 128) % 32, 0) << int{sample};
    // 0.90625 of 4 is 3.625; the dither brings it to 3 or 4, and 4 stands above the container
    EXPECT_EQ(resultsOf<std::uint8_t>(1.0f, formatOf(0, 1, 3)),
              (std::set<std::uint8_t>{128 + 96, 255}));
}

TEST(SampleConverter, EightBitSilenceIs128WithinOne) {
    EXPECT_EQ(resultsOf<std::uint8_t>(0.0f, formatOf(0, 1)),
              (std::set<std::uint8_t>{127, 128, 129}));
    EXPECT_EQ(resultsOf<std::uint8_t>(0.0f, formatOf(0, 1), false, false),
              (std::set<std::uint8_t>{128}));
}

TEST(SampleConverter, DitherIsTriangular) {
    SampleConverter converter;
    const Bytes source = bytesOf(std::vector<float>(1 << 18, 0.0f));
    const auto results =
        samplesOf<std::int16_t>(convertBytes(converter, source, formatOf(5, 1), formatOf(1, 1)));
    // A triangle over -1 to 1 has an eighth of its area beyond each half.
    const auto share = [&](int value) {
        return static_cast<double>(std::ranges::count(results, value)) /
               static_cast<double>(results.size());
    };
    EXPECT_NEAR(share(1), 0.125, 0.003);
    EXPECT_NEAR(share(-1), 0.125, 0.003);
    EXPECT_NEAR(share(0), 0.75, 0.004);
}

TEST(SampleConverter, WideningIsExactAndDrawsNoDither) {
    for (const bool shaping : {false, true}) {
        const FixedEntropy entropy{3};
        SampleConverter converter;
        SampleConverter fresh;
        converter.shapingOn = fresh.shapingOn = shaping;
        const Bytes source = bytesOf<std::int16_t>({1, -1, 32767, -32768});
        EXPECT_EQ(convertBytes(converter, source, formatOf(1, 2), formatOf(4, 2)),
                  bytesOf<std::int32_t>({1 << 16, -(1 << 16), 32767 * 65536, -32768 * 65536}));
        EXPECT_EQ(convertBytes(converter, source, formatOf(1, 2), formatOf(4, 1)),
                  bytesOf<std::int32_t>({0, -32768}));
        EXPECT_EQ(convertBytes(converter, source, formatOf(1, 2), formatOf(2, 1)),
                  (Bytes{0, 0, 0, 0x80, 0xff, 0xff}));
        EXPECT_EQ(convertBytes(converter, {0, 128, 255}, formatOf(0, 1), formatOf(1, 1)),
                  bytesOf<std::int16_t>({-32768, 0, 32512}));

        const Bytes music = noiseBytes(5, 64, 1);
        EXPECT_EQ(convertBytes(converter, music, formatOf(5, 2), formatOf(1, 2)),
                  convertBytes(fresh, music, formatOf(5, 2), formatOf(1, 2)));
    }
}

TEST(SampleConverter, FewerBitsThanTheSourceInAWiderContainerAreAlmostSilent) {
    const Bytes source = noiseBytes(0, 200, 9);
    SampleConverter converter;
    for (const std::int16_t sample : samplesOf<std::int16_t>(
             convertBytes(converter, source, formatOf(0, 2), formatOf(1, 2, 7))))
        EXPECT_TRUE(sample == 0 || sample == 512 || sample == -512) << sample;
    converter.ditherOn = false;
    EXPECT_EQ(convertBytes(converter, source, formatOf(0, 2), formatOf(1, 2, 7)), Bytes(400, 0));
}

TEST(SampleConverter, IntegersBecomeFloatsOfTheSameScale) {
    EXPECT_EQ((undithered<float, std::int16_t>({-32768, 1, 16384}, formatOf(1, 1), formatOf(5, 1))),
              (std::vector<float>{-1.0f, 0x1p-15f, 0.5f}));
    EXPECT_EQ((undithered<double, std::uint8_t>({0, 128, 255}, formatOf(0, 1), formatOf(6, 1))),
              (std::vector<double>{-1.0, 0.0, 127.0 / 128.0}));
    EXPECT_EQ(
        (undithered<double, std::int32_t>({1 << 23, 1 << 30}, formatOf(3, 1), formatOf(6, 1))),
        (std::vector<double>{1.0, 128.0}));
    EXPECT_EQ((undithered<float, std::int32_t>({-2147483647 - 1}, formatOf(4, 1), formatOf(5, 1))),
              (std::vector<float>{-1.0f}));
    EXPECT_EQ((undithered<float, std::uint8_t>({0, 0, 0xc0}, formatOf(2, 1), formatOf(5, 1))),
              (std::vector<float>{-0.5f}));
}

TEST(SampleConverter, FloatsAreCastAndMayExceedFullScale) {
    EXPECT_EQ((undithered<float, double>({3.5, 1.0 / 3.0}, formatOf(6, 1), formatOf(5, 1))),
              (std::vector<float>{3.5f, 1.0f / 3.0f}));
    EXPECT_EQ((undithered<double, float>({1.0f, 0.25f}, formatOf(5, 2), formatOf(6, 1))),
              (std::vector<double>{0.625}));
    EXPECT_EQ((undithered<float, std::int16_t>({16384, 8192}, formatOf(1, 2), formatOf(5, 1))),
              (std::vector<float>{0.375f}));
}

TEST(SampleConverter, StereoIsAddedBeforeItIsRounded) {
    // 0.5 LSB each: one by one they would round to 0
    constexpr float half = 0.5f / 32768.0f;
    EXPECT_EQ(
        (undithered<std::int16_t, float>({half, 3.0f * half}, formatOf(5, 2), formatOf(1, 1))),
        (std::vector<std::int16_t>{1}));
}

TEST(SampleConverter, MonoGoesToBothWithADrawEach) {
    SampleConverter converter;
    const Bytes source = bytesOf(std::vector<std::int16_t>(1000, 100));
    const auto results =
        samplesOf<std::int16_t>(convertBytes(converter, source, formatOf(1, 1), formatOf(1, 2)));
    int unlike = 0;
    for (std::size_t i = 0; i < results.size(); i += 2) {
        EXPECT_NEAR(results[i], 100, 1);
        EXPECT_NEAR(results[i + 1], 100, 1);
        unlike += results[i] != results[i + 1];
    }
    EXPECT_GT(unlike, 200);
}

TEST(SampleConverter, MissingChannelsAreDitheredSilence) {
    SampleConverter converter;
    const Bytes source = bytesOf(std::vector<float>(4000, 0.5f));
    const auto results =
        samplesOf<std::int16_t>(convertBytes(converter, source, formatOf(5, 2), formatOf(1, 4)));
    for (const std::size_t channel : {2u, 3u}) {
        std::set<std::int16_t> seen;
        for (std::size_t i = channel; i < results.size(); i += 4)
            seen.insert(results[i]);
        EXPECT_EQ(seen, (std::set<std::int16_t>{-1, 0, 1}));
    }
}

TEST(SampleConverter, ExtraChannelsAreDropped) {
    EXPECT_EQ((undithered<std::int16_t, std::int32_t>(
                  {1 << 16, 2 << 16, 3 << 16, 4 << 16, 5 << 16, 6 << 16}, formatOf(4, 3),
                  formatOf(1, 2))),
              (std::vector<std::int16_t>{1, 2, 4, 5}));
    EXPECT_EQ((undithered<std::int16_t, std::int32_t>({1 << 16, 2 << 16, 3 << 16}, formatOf(4, 3),
                                                      formatOf(1, 1))),
              (std::vector<std::int16_t>{1}));
}

TEST(SampleConverter, StrideWiderThanTheFormatPicksTheFirstChannel) {
    const std::vector<std::int16_t> source = {8192, -8192, 16384, -16384};
    std::array<float, 2> result{};
    SampleConverter converter;
    converter.convertFull({source.data(), 2, 4}, formatOf(1, 1), {result.data(), 2, 4},
                          formatOf(5, 1));
    EXPECT_EQ(result, (std::array{0.25f, 0.5f}));

    std::array<std::int16_t, 2> copied{};
    converter.convertFull({source.data(), 2, 4}, formatOf(1, 1), {copied.data(), 2, 2},
                          formatOf(1, 1));
    EXPECT_EQ(copied, (std::array<std::int16_t, 2>{8192, 16384}));
}

TEST(SampleConverter, BytesBetweenDestinationFramesStay) {
    const std::vector<float> source = {0.25f, 0.5f};
    std::array<std::int16_t, 4> result = {7, 7, 7, 7};
    SampleConverter converter;
    converter.ditherOn = false;
    converter.convertFull({source.data(), 2, 4}, formatOf(5, 1), {result.data(), 2, 4},
                          formatOf(1, 1));
    EXPECT_EQ(result, (std::array<std::int16_t, 4>{8192, 7, 16384, 7}));
}

TEST(SampleConverter, ConvertsAsManyFramesAsBothHave) {
    const std::vector<float> source = {0.25f, 0.5f, 0.75f};
    std::array<std::int16_t, 3> result = {7, 7, 7};
    SampleConverter converter;
    converter.ditherOn = false;
    const auto convert = [&](int in, int out) {
        converter.convertFull({source.data(), in, 4}, formatOf(5, 1), {result.data(), out, 2},
                              formatOf(1, 1));
    };
    convert(3, 0);
    convert(0, 3);
    EXPECT_EQ(result, (std::array<std::int16_t, 3>{7, 7, 7}));
    convert(3, 1);
    EXPECT_EQ(result, (std::array<std::int16_t, 3>{8192, 7, 7}));
    convert(2, 3);
    EXPECT_EQ(result, (std::array<std::int16_t, 3>{8192, 16384, 7}));
}

TEST(SampleConverter, ConvertFullIgnoresTheLayout) {
    SampleConverter converter;
    converter.ditherOn = false;
    const float sample = 3.0f / 32768.0f;
    std::int16_t result = 0;
    converter.convertFull({&sample, 1, 4}, formatOf(5, 1), {&result, 1, 2}, formatOf(1, 1, 12));
    EXPECT_EQ(result, 3);
    converter.convert({&sample, 1, 4}, formatOf(5, 1), {&result, 1, 2}, formatOf(1, 1, 12));
    EXPECT_EQ(result, 0);
}

TEST(SampleConverter, Type3CarriesOvershoots) {
    EXPECT_EQ((undithered<std::int32_t, float>({1.0f, 100.0f, 300.0f, -300.0f}, formatOf(5, 1),
                                               formatOf(3, 1))),
              (std::vector<std::int32_t>{1 << 23, 100 << 23, 2147483647, -2147483647 - 1}));
    EXPECT_EQ((undithered<std::int16_t, std::int32_t>({1 << 22, 1 << 25}, formatOf(3, 1),
                                                      formatOf(1, 1))),
              (std::vector<std::int16_t>{16384, 32767}));
    EXPECT_EQ((undithered<std::int32_t, std::int32_t>({-3, 1 << 25, -(1 << 25)}, formatOf(3, 1),
                                                      formatOf(4, 1))),
              (std::vector<std::int32_t>{-768, 2147483647, -2147483647 - 1}));
}

TEST(SampleConverter, ShapedType3DestinationStaysUnwritten) {
    SampleConverter converter;
    converter.shapingOn = true;
    EXPECT_EQ(convertBytes(converter, noiseBytes(5, 16, 2), formatOf(5, 2), formatOf(3, 2), 0x5a),
              Bytes(64, 0x5a));
}

TEST(SampleConverter, NotANumberIsSilenceAndInfinityIsFullScale) {
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    constexpr float infinity = std::numeric_limits<float>::infinity();
    for (const std::uint32_t features : {0u, ~0u}) {
        SampleConverter converter{features};
        const Bytes source =
            bytesOf({nan, infinity, -infinity, 1e30f, -1e30f, nan, 0.0f, 0.0f, 0.0f});
        for (const bool shaping : {false, true}) {
            converter.shapingOn = shaping;
            const auto results = samplesOf<std::int16_t>(
                convertBytes(converter, source, formatOf(5, 1), formatOf(1, 1)));
            EXPECT_NEAR(results[0], 0, 1);
            EXPECT_EQ(results[1], 32767);
            EXPECT_EQ(results[2], -32768);
            EXPECT_EQ(results[3], 32767);
            EXPECT_EQ(results[4], -32768);
            for (std::size_t i = 5; i < results.size(); ++i)
                EXPECT_NEAR(results[i], 0, 22) << "sample " << i;
        }
    }
}

TEST(SampleConverter, ResultsDontDependOnHowTheStreamIsCut) {
    constexpr int frames = 3000;
    for (const bool shaping : {false, true}) {
        for (const int layout : {fullWidth, 13}) {
            const FixedEntropy entropy{11};
            SampleConverter whole;
            SampleConverter cut;
            whole.shapingOn = cut.shapingOn = shaping;
            const SampleFormat from = formatOf(5, 2);
            const SampleFormat to = formatOf(1, 2, layout);
            const Bytes source = noiseBytes(5, 2 * frames, 12);
            const Bytes expected = convertBytes(whole, source, from, to);

            Bytes result(expected.size());
            std::mt19937 random{13};
            for (int done = 0; done < frames;) {
                const int now = std::min(frames - done, static_cast<int>(random() % 400));
                cut.convert({source.data() + 8 * done, now, 8}, from,
                            {result.data() + 4 * done, now, 4}, to);
                done += now;
            }
            EXPECT_EQ(result, expected) << "shaping " << shaping << ", layout " << layout;
        }
    }
}

TEST(SampleConverter, ErrorsOfOneFormatShapeTheNext) {
    const FixedEntropy entropy{17};
    SampleConverter used;
    SampleConverter fresh;
    used.shapingOn = fresh.shapingOn = true;
    used.ditherOn = fresh.ditherOn = false;
    convertBytes(used, noiseBytes(5, 99, 1), formatOf(5, 3), formatOf(0, 3));
    const Bytes source = noiseBytes(6, 40, 2);
    EXPECT_NE(convertBytes(used, source, formatOf(6, 2), formatOf(2, 2)),
              convertBytes(fresh, source, formatOf(6, 2), formatOf(2, 2)));
}

TEST(SampleConverter, WithoutDitherAndShapingChanceHasNoPart) {
    const Bytes source = noiseBytes(5, 600, 3);
    const auto convertWithSeed = [&](std::uint32_t seed) {
        const FixedEntropy entropy{seed};
        SampleConverter converter;
        converter.ditherOn = false;
        return convertBytes(converter, source, formatOf(5, 2), formatOf(1, 2));
    };
    EXPECT_EQ(convertWithSeed(1), convertWithSeed(2));
}

TEST(SampleConverter, WideningAndBackIsIdentityWithoutDither) {
    SampleConverter converter;
    converter.ditherOn = false;
    for (const int narrow : {0, 1, 2}) {
        for (const int wide : {1, 2, 3, 4}) {
            if (bytesPerSample(wide) <= bytesPerSample(narrow)) continue;
            const Bytes source = noiseBytes(narrow, 600, 4);
            const Bytes there =
                convertBytes(converter, source, formatOf(narrow, 2), formatOf(wide, 2));
            EXPECT_EQ(convertBytes(converter, there, formatOf(wide, 2), formatOf(narrow, 2)),
                      source)
                << narrow << " to " << wide;
        }
    }
}

TEST(SampleConverter, WideningAndBackWithDitherStaysWithinItAndTheScale) {
    SampleConverter converter;
    const Bytes source = noiseBytes(1, 4000, 4);
    const Bytes there = convertBytes(converter, source, formatOf(1, 2), formatOf(4, 2));
    const auto back =
        samplesOf<std::int16_t>(convertBytes(converter, there, formatOf(4, 2), formatOf(1, 2)));
    const auto before = samplesOf<std::int16_t>(source);
    for (std::size_t i = 0; i < back.size(); ++i)
        ASSERT_NEAR(back[i], before[i] * 32766.5 / 32768.0, 1.51);
}

TEST(SampleConverter, FloatToIntegerErrsByAtMostOneAndAHalf) {
    for (const int type : {0, 1, 2, 3, 4}) {
        SampleConverter converter;
        Bytes source = noiseBytes(6, 4000, 5);
        auto values = samplesOf<double>(source);
        for (double& value : values)
            value = std::clamp(value, -1.0, 1.0);
        source = bytesOf(values);
        const Bytes result = convertBytes(converter, source, formatOf(6, 2), formatOf(type, 2));

        const SampleFormat back = formatOf(type, 2);
        const auto read = samplesOf<double>(convertBytes(converter, result, back, formatOf(6, 2)));
        const double lsb = type == 0 ? 0x1p-7 : type == 1 ? 0x1p-15 : type == 4 ? 0x1p-31 : 0x1p-23;
        const double scale = type == 3 ? 1.0 : 1.0 - 1.5 * lsb;
        for (std::size_t i = 0; i < read.size(); ++i)
            ASSERT_LE(std::abs(read[i] - values[i] * scale), 1.5 * lsb) << "type " << type;
    }
}

TEST(SampleConverter, TakesFramesOfMoreThanSixteenChannels) {
    SampleConverter converter;
    converter.shapingOn = true;
    const Bytes source = noiseBytes(5, 17 * 30, 5);
    const auto results =
        samplesOf<std::int16_t>(convertBytes(converter, source, formatOf(5, 17), formatOf(1, 17)));
    const auto values = samplesOf<float>(source);
    for (std::size_t i = 0; i < results.size(); ++i)
        ASSERT_NEAR(results[i], std::clamp(values[i], -1.0f, 1.0f) * 32768.0f, 24.0f);
}

TEST(SampleConverter, NamesItsKernels) {
    EXPECT_STREQ(SampleConverter{0}.kernelName(), "plain");
}

TEST(SampleConverterHandle, CopiesItsSwitchesToEveryConversion) {
    constexpr float sample = 0.25f / 32768.0f;
    const Bytes source = bytesOf(std::vector<float>(200, sample));
    const auto results = [&](SampleConverterHandle& handle) {
        std::vector<std::int16_t> samples(200);
        handle.convert({source.data(), 200, 4}, formatOf(5, 1), {samples.data(), 200, 2},
                       formatOf(1, 1));
        return std::set<std::int16_t>{samples.begin(), samples.end()};
    };
    SampleConverterHandle handle;
    handle.dither = false;
    EXPECT_EQ(results(handle), (std::set<std::int16_t>{0}));
    handle.noiseShaping = true;
    EXPECT_GT(results(handle).size(), 2u);
    EXPECT_TRUE(handle.noiseShaping);
    EXPECT_FALSE(handle.dither);
    handle.noiseShaping = false;
    EXPECT_EQ(results(handle), (std::set<std::int16_t>{0}));
    handle.dither = true;
    EXPECT_EQ(results(handle), (std::set<std::int16_t>{-1, 0, 1}));
}

TEST(SampleConverterHandle, ConvertFullIgnoresTheLayout) {
    SampleConverterHandle handle;
    handle.dither = false;
    const float sample = 3.0f / 32768.0f;
    std::int16_t result = 0;
    handle.convertFull({&sample, 1, 4}, formatOf(5, 1), {&result, 1, 2}, formatOf(1, 1, 12));
    EXPECT_EQ(result, 3);
}

} // namespace
} // namespace velorine
