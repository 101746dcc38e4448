#include "stages/SpliceStage.h"

#include "foundation/CpuFeatures.h"
#include "tests/stages/StageChain.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace velorine::test {
namespace {

constexpr double pi = std::numbers::pi;
constexpr SampleFormat mono16{sampleType::int16, 1, 48000, fullWidth};
constexpr SampleFormat stereo16{sampleType::int16, 2, 48000, fullWidth};

struct SpliceChain : StageChain<SpliceStage> {
    explicit SpliceChain(double ratio, double level = 1.0) {
        stage.ratio = ratio;
        stage.level = level;
    }
    std::vector<double> heard(int index = 0) const {
        std::vector<double> samples;
        for (const std::int16_t sample : channel<std::int16_t>(index))
            samples.push_back(sample);
        return samples;
    }
};

std::vector<std::int16_t> noise16(int samples, std::mt19937& random) {
    std::vector<std::int16_t> out;
    for (int i = 0; i < samples; ++i)
        out.push_back(static_cast<std::int16_t>(random() >> 16));
    return out;
}

std::vector<std::int16_t> sine16(int frames, double hz, double amplitude, int rate = 48000) {
    std::vector<std::int16_t> out;
    for (int i = 0; i < frames; ++i)
        out.push_back(
            static_cast<std::int16_t>(std::lrint(amplitude * std::sin(2.0 * pi * hz / rate * i))));
    return out;
}

// -- Grain and fade ----------------------------------------------------------------------------

TEST(SpliceGrain, Is55Or58Milliseconds) {
    const struct {
        int rate, slower, faster;
    } rows[] = {{48000, 2640, 2784}, {44100, 2426, 2558}, {32000, 1760, 1856}, {96000, 5280, 5568}};
    for (const auto& row : rows) {
        EXPECT_EQ(spliceGrain(row.rate, 0.5), row.slower);
        EXPECT_EQ(spliceGrain(row.rate, 1.0), row.slower);
        EXPECT_EQ(spliceGrain(row.rate, 1.0001), row.faster);
    }
    EXPECT_EQ(spliceGrain(0, 0.5), 1);
}

TEST(SpliceFade, FollowsItsCurves) {
    const struct {
        double steep, exponent;
        int frame;
        unsigned outgoing, incoming;
    } rows[] = {
        {1.8, 0.5, 0, 16384, 0},        {1.8, 0.5, 587, 16382, 247},
        {1.8, 0.5, 1000, 13885, 8698},  {1.8, 0.5, 1319, 11593, 11577},
        {1.8, 0.5, 1320, 11585, 11585}, {1.8, 0.5, 2053, 248, 16382},
        {1.8, 0.5, 2639, 0, 16384},     {1.8, 1.0, 1000, 11767, 4617},
        {1.8, 1.0, 1319, 8203, 8181},   {1.8, 1.0, 1320, 8192, 8192},
        {99999.9, 0.5, 1319, 16384, 0}, {99999.9, 0.5, 1320, 12125, 11019},
        {99999.9, 0.5, 1640, 0, 16384},
    };
    SpliceFade fade;
    for (const auto& row : rows) {
        fade.design(2640, row.steep, row.exponent);
        const std::uint32_t weights = fade.weights()[row.frame];
        EXPECT_EQ(weights & 0xFFFF, row.outgoing) << row.steep << ", " << row.frame;
        EXPECT_EQ(weights >> 16, row.incoming) << row.steep << ", " << row.frame;
    }
}

// -- At the stream's own tempo -----------------------------------------------------------------

TEST(SpliceStage, WithoutLevelAndTempoItHandsBlocksOn) {
    SpliceChain chain{1.0};
    expectPassesOn<SpliceStage>(chain);
}

TEST(SpliceStage, ALevelAloneScalesAndRounds) {
    SpliceChain chain{1.0, 0.5};
    std::vector<std::int16_t> all;
    for (int x = -32768; x < 32768; ++x)
        all.push_back(static_cast<std::int16_t>(x));
    chain.write(mono16, all);
    chain.pumpAll();
    const auto out = chain.channel<std::int16_t>(0);
    ASSERT_EQ(out.size(), all.size());
    for (std::size_t i = 0; i < all.size(); ++i) // halves upwards
        ASSERT_EQ(out[i], static_cast<std::int16_t>(std::floor(all[i] / 2.0 + 0.5))) << all[i];
    EXPECT_EQ(chain.blockFrames[0], 1152);
    EXPECT_EQ(chain.last.format, mono16);
}

TEST(SpliceStage, ALevelAboveOneClamps) {
    SpliceChain chain{1.0, 2.0};
    chain.write(stereo16, std::vector<std::int16_t>{20'000, -20'000, 100, -100});
    chain.pumpAll();
    EXPECT_EQ(chain.heard(0), (std::vector<double>{32767, 200}));
    EXPECT_EQ(chain.heard(1), (std::vector<double>{-32768, -200}));
}

TEST(SpliceStage, ALevelOfZeroIsSilence) {
    for (const double ratio : {1.0, 0.75}) {
        SpliceChain chain{ratio, 0.0};
        std::mt19937 random{1};
        chain.write(stereo16, noise16(20'000, random));
        chain.pumpAll();
        ASSERT_FALSE(chain.delivered.empty());
        for (const double x : chain.heard())
            ASSERT_EQ(x, 0.0);
    }
}

// -- At another tempo --------------------------------------------------------------------------

TEST(SpliceStage, NearItsOwnTempoItSwitchesInTheMiddleOfAGrain) {
    SpliceChain hard{1.01};
    hard.write(mono16, counting<std::int16_t>(4000, 0));
    hard.pump();
    ASSERT_EQ(hard.delivered.size(), 2784U);
    const int ahead = 2811 - 2784; // of 1.01 * 2784
    for (int i = 0; i < 2784; ++i) {
        if (i >= 1392 && i < 1400) continue; // the switch itself
        ASSERT_EQ(hard.delivered[static_cast<std::size_t>(i)].sample<std::int16_t>(0),
                  i < 1392 ? i : i + ahead)
            << i;
    }
    SpliceChain soft{1.03};
    soft.write(mono16, counting<std::int16_t>(4000, 0));
    soft.pump();
    const auto out = soft.heard();
    int between = 0; // equal power: two pieces that are much alike swell in the middle
    for (int i = 0; i < 2784; ++i)
        between += out[static_cast<std::size_t>(i)] > i + 84 ? 1 : 0;
    EXPECT_GT(between, 1000);
}

TEST(SpliceStage, PiecesThatCoincideStayAsTheyAre) {
    SpliceChain chain{1.0001}; // 2784.28 frames on
    std::mt19937 random{2};
    const auto samples = noise16(3000, random);
    chain.write(mono16, samples);
    chain.pump();
    ASSERT_EQ(chain.delivered.size(), 2784U);
    for (std::size_t i = 0; i < 2784; ++i)
        ASSERT_NEAR(chain.delivered[i].sample<std::int16_t>(0), samples[i], 1.0) << i;
}

/// Splices grain by grain in doubles, as the formulas have it before any rounding.
std::vector<double> splicedInDouble(const std::vector<std::int16_t>& in, double ratio, double level,
                                    int grain) {
    const auto at = [&](std::int64_t frame) {
        return frame >= 0 && frame < std::ssize(in) ? in[static_cast<std::size_t>(frame)] : 0.0;
    };
    std::vector<double> out;
    const bool soft = std::fabs(ratio - 1.0) > 0.02;
    for (std::int64_t n = 0;; ++n) {
        const auto from =
            static_cast<std::int64_t>(std::floor(static_cast<double>(n * grain) * ratio));
        const auto to =
            static_cast<std::int64_t>(std::floor(static_cast<double>((n + 1) * grain) * ratio));
        if (std::max(from + grain, to) > std::ssize(in)) return out;
        for (int i = 0; i < grain; ++i) {
            const std::int64_t fixed = i * std::int64_t{16'777'216 / grain}; // in whole 2^-24
            const double place = static_cast<double>(fixed) / 16'777'216.0;
            const double x = std::clamp((place - 0.5) * (soft ? 1.8 : 1e5) + 0.5, 0.0, 1.0);
            const double y = at(from + i) * std::sqrt(1.0 - x) + at(to - grain + i) * std::sqrt(x);
            out.push_back(std::clamp(y * level, -32768.0, 32767.0));
        }
    }
}

TEST(SpliceStage, AgreesWithDoublesAtEveryTempo) {
    std::mt19937 random{3};
    // Ratios whose sums no rounding can carry over a whole frame.
    for (const double ratio : {0.5, 0.625, 0.75, 0.9375, 1.0625, 1.25, 1.5, 2.0}) {
        for (const double level : {0.25, 1.0, 2.0}) {
            const int grain = ratio > 1.0 ? 2784 : 2640;
            SpliceChain chain{ratio, level};
            auto samples = noise16(60'000, random);
            for (std::int16_t& sample : samples)
                sample = static_cast<std::int16_t>(sample / 2);
            chain.writeInPieces(mono16, samples, random);
            chain.pumpAll();
            const auto expected = splicedInDouble(samples, ratio, level, grain);
            const auto out = chain.heard();
            ASSERT_EQ(out.size(), expected.size()) << ratio;
            // Half a 16384th of each weight, and two roundings, of 1/64 and of 1.
            for (std::size_t i = 0; i < out.size(); ++i)
                ASSERT_NEAR(out[i], expected[i], (1.0 + 1.0 / 128) * level + 0.51)
                    << ratio << ", frame " << i;
        }
    }
}

TEST(SpliceStage, TheLengthFollowsTheTempo) {
    std::mt19937 random{4};
    for (const double ratio : {0.5, 0.7, 0.9, 0.99, 1.001, 1.02, 1.1, 1.37, 2.0}) {
        for (const double level : {0.0, 0.5, 1.0, 2.0}) {
            SpliceChain chain{ratio, level};
            chain.writeInPieces(stereo16, noise16(2 * 100'000, random), random);
            chain.pumpAll();
            const auto frames = static_cast<double>(chain.delivered.size());
            const int grain = spliceGrain(48000, ratio);
            // What waits for more: less than a grain, of the input or of the output.
            EXPECT_LE(frames * ratio, 100'000.0) << ratio;
            EXPECT_GT(frames * ratio, 100'000.0 - grain * std::max(ratio, 1.0)) << ratio;
            EXPECT_EQ(chain.blockFrames.front(), grain);
        }
    }
}

TEST(SpliceStage, ASoftSwitchDoesNotClick) {
    for (const double ratio : {0.9, 1.1}) {
        for (const double hz : {150.0, 440.0, 1000.0}) {
            SpliceChain chain{ratio};
            constexpr double amplitude = 10'000.0;
            chain.write(mono16, sine16(200'000, hz, amplitude));
            chain.pumpAll();
            const auto out = chain.heard();
            const double w = 2.0 * pi * hz / 48000.0;
            // Two sines, each at most at its full level; the weights' steepest step stands at the
            // fade's end: the root of 1.8 / G.
            const double bend =
                amplitude * (std::numbers::sqrt2 * w * w + 2.0 * std::sqrt(1.8 / 2640.0) * 1.2) +
                4.0;
            double most = 0.0;
            for (std::size_t i = 1; i + 1 < out.size(); ++i)
                most = std::max(most, std::fabs(out[i - 1] - 2.0 * out[i] + out[i + 1]));
            EXPECT_LE(most, bend) << ratio << ", " << hz;
            EXPECT_LE(bend, amplitude * 0.1); // a cut where the pieces don't fit bends up to 2
        }
    }
}

TEST(SpliceStage, KeepsThePitch) {
    for (const double ratio : {0.5, 0.8, 0.9, 1.01, 1.1, 1.25, 2.0}) {
        SpliceChain chain{ratio};
        chain.write(mono16, sine16(200'000, 440.0, 10'000.0));
        chain.pumpAll();
        const auto out = chain.heard();
        const int grain = spliceGrain(48000, ratio);
        // Between two fades, around each seam of grains, the tone is alone.
        double cycles = 0.0;
        double frames = 0.0;
        for (std::size_t seam = 2 * static_cast<std::size_t>(grain); seam + 1000 < out.size();
             seam += static_cast<std::size_t>(grain)) {
            double first = 0.0;
            double last = 0.0;
            int crossings = 0;
            for (std::size_t i = seam - 550; i < seam + 550; ++i) {
                if (out[i] >= 0.0 || out[i + 1] < 0.0) continue;
                last = static_cast<double>(i) + out[i] / (out[i] - out[i + 1]);
                if (crossings++ == 0) first = last;
            }
            cycles += crossings - 1;
            frames += last - first;
        }
        EXPECT_NEAR(cycles / frames * 48000.0, 440.0, 440.0 * 0.002) << ratio;
    }
}

TEST(SpliceStage, LessInputThanAGrainWaits) {
    SpliceChain chain{1.5};
    chain.write(mono16, counting<std::int16_t>(4175, 0)); // 1.5 * 2784 = 4176
    chain.pumpAll();
    EXPECT_TRUE(chain.delivered.empty());
    chain.write(mono16, std::vector<std::int16_t>{5});
    chain.pumpAll();
    EXPECT_EQ(chain.delivered.size(), 2784U);
    EXPECT_EQ(chain.last.srcEnd, std::int64_t{4176} << 16);
    EXPECT_EQ(chain.last.timeEnd, chain.input.hostRing.newest().timeEnd);
    SpliceChain slow{0.5};
    slow.write(mono16, counting<std::int16_t>(2639, 0)); // the outgoing piece is a whole grain
    slow.pumpAll();
    EXPECT_TRUE(slow.delivered.empty());
}

TEST(SpliceStage, MonoStaysMonoAndMoreChannelsBecomeTwo) {
    std::mt19937 random{5};
    for (const int channels : {1, 2, 4}) {
        SpliceChain chain{0.8};
        chain.write(formatOf(sampleType::int16, channels, 44100), noise16(6000 * channels, random));
        chain.pumpAll();
        ASSERT_FALSE(chain.delivered.empty());
        EXPECT_EQ(chain.last.format, formatOf(sampleType::int16, channels == 1 ? 1 : 2, 44100));
        EXPECT_EQ(chain.last.frames(), 2426);
    }
}

TEST(SpliceStage, StartsATempoWhereTheStreamStands) {
    SpliceChain chain{1.0};
    std::mt19937 random{6};
    const auto samples = noise16(30'000, random);
    chain.write(mono16, samples);
    chain.pumpTo(30'000);
    chain.rewindTo(12'345);
    chain.stage.ratio = 0.75;
    chain.pump();
    EXPECT_EQ(chain.last.srcStart, std::int64_t{12'345} << 16);
    EXPECT_EQ(chain.last.srcEnd, std::int64_t{12'345 + 1980} << 16);
    for (std::size_t i = 0; i < 580; ++i) // before its fade a grain is the stream
        ASSERT_EQ(chain.delivered[12'345 + i].sample<std::int16_t>(0), samples[12'345 + i]);
}

// -- Going back --------------------------------------------------------------------------------

TEST(SpliceStage, GoesBackByWholeGrains) {
    SpliceStage stage;
    EXPECT_EQ(stage.alignRewind(-5000, FxPos{}), -5000);
    EXPECT_EQ(stage.inputStartFor(0, FxPos(9000, 5)), 9000);
    stage.ratio = 0.9;
    EXPECT_EQ(stage.alignRewind(-5000, FxPos{}), -2640); // towards zero
    EXPECT_EQ(stage.alignRewind(-2639, FxPos{}), 0);
    EXPECT_EQ(stage.alignRewind(-5280, FxPos{}), -5280);
    EXPECT_EQ(stage.inputStartFor(0, FxPos(9000, 5)), 9000 - 2640);
    EXPECT_EQ(stage.inputEndFor(0, FxPos(9000, 5)), 9001);
    stage.ratio = 1.1;
    EXPECT_EQ(stage.alignRewind(-5000, FxPos{}), -2784);
    EXPECT_EQ(stage.inputStartFor(0, FxPos(9000, 5)), 9000 - 2784);
}

TEST(SpliceStage, RepeatsBitForBitAfterRewindsToGrains) {
    std::mt19937 random{7};
    for (const double ratio : {0.5, 0.9, 0.99, 1.1, 1.013, 1.37, 2.0}) {
        for (const int channels : {1, 2}) {
            for (const int type : {sampleType::int16, sampleType::int8}) {
                const auto bytes = noiseBytes(type, 120'000 * channels, random);
                SpliceChain straight{ratio, 0.8};
                straight.write(formatOf(type, channels, 48000), bytes);
                straight.pumpAll();
                SpliceChain chain{ratio, 0.8};
                chain.writeInPieces(formatOf(type, channels, 48000), bytes, random);
                chain.pumpWithRewinds(random, 12, 20'000, static_cast<std::int64_t>(1.2e5 / ratio));
                ASSERT_TRUE(chain.delivered == straight.delivered)
                    << ratio << ", " << channels << " channels, type " << type;
            }
        }
    }
}

TEST(SpliceStage, InWiderFormatsOnlyTheDitherDiffersAfterARewind) {
    std::mt19937 random{8};
    for (const int type : {sampleType::int24, sampleType::int28, sampleType::int32,
                           sampleType::float32, sampleType::float64}) {
        const auto bytes = noiseBytes(type, 2 * 60'000, random);
        SpliceChain straight{0.9};
        straight.write(formatOf(type, 2, 48000), bytes);
        straight.pumpAll();
        SpliceChain chain{0.9};
        chain.writeInPieces(formatOf(type, 2, 48000), bytes, random);
        chain.pumpWithRewinds(random, 8, 20'000, 66'000);
        const auto expected = straight.heard();
        const auto out = chain.heard();
        ASSERT_EQ(out.size(), expected.size());
        for (std::size_t i = 0; i < out.size(); ++i) // two pieces, each within 1.5 of its sample
            ASSERT_NEAR(out[i], expected[i], 2.0 * 1.5 * 1.415 + 1.0) << type << ", " << i;
    }
}

TEST(SpliceStage, NothingIsMadeForNothing) {
    FxArena arena;
    FxRing ring;
    FxBlock out;
    SpliceStage stage;
    EXPECT_FALSE(stage.process(arena, out, ring, 1152));
    stage.ratio = 0.9;
    EXPECT_FALSE(stage.process(arena, out, ring, 1152));
    appendTo(ring, countingBlock(arena, 10'000, 0, 0, 100));
    EXPECT_FALSE(stage.process(arena, out, ring, 0));
}

// -- The loops ---------------------------------------------------------------------------------

TEST(SpliceKernels, AllYieldTheSameBits) {
    if (!covers(cpuFeatures(), cpuFeature::avx2Fma)) GTEST_SKIP() << "no avx2 here";
    std::mt19937 random{9};
    SpliceFade fade;
    for (int turn = 0; turn < 600; ++turn) {
        const int frames = 1 + static_cast<int>(random() % 300);
        const int channels = 1 + turn % 2;
        auto outgoing = noise16(frames * channels + 1, random);
        auto incoming = noise16(frames * channels + 1, random);
        if (turn % 4 == 0) outgoing = incoming = std::vector<std::int16_t>(outgoing.size(), -32768);
        fade.design(frames, turn % 3 == 0 ? 99999.9 : 1.8, turn % 5 == 0 ? 1.0 : 0.5);
        constexpr std::int64_t levels[] = {
            0, 1, 256, 512, 720, -720, 721, 5000, std::int64_t{1} << 40};
        SpliceRun run{outgoing.data() + 1,
                      incoming.data() + 1,
                      fade.weights(),
                      frames,
                      channels,
                      levels[random() % std::size(levels)],
                      nullptr};
        const auto mixed = [&](const SpliceKernels& kernels) {
            std::vector<std::int16_t> out(outgoing.size(), 77);
            run.out = out.data();
            kernels.mixGrain(run);
            EXPECT_EQ(out.back(), 77);
            return out;
        };
        ASSERT_EQ(mixed(avx2SpliceKernels), mixed(plainSpliceKernels)) << turn;
    }
}

TEST(SpliceKernels, TheBestThatTheProcessorHasIsChosen) {
    EXPECT_EQ(&spliceKernels(0), &plainSpliceKernels);
    EXPECT_EQ(&spliceKernels(cpuFeature::avx2Fma), &avx2SpliceKernels);
}

} // namespace
} // namespace velorine::test
