#include "tests/player/AudioFiles.h"
#include "tests/player/Program.h"

#include <gtest/gtest.h>

#include <sndfile.h>

#include <cmath>
#include <numbers>

namespace velorine::test {
namespace {

constexpr int wav32 = SF_FORMAT_WAV | SF_FORMAT_PCM_32;

std::vector<double> tone(std::int64_t frames, double rate) {
    std::vector<double> samples;
    for (std::int64_t i = 0; i < frames; ++i)
        samples.insert(
            samples.end(), 2,
            0.5 * std::sin(2.0 * std::numbers::pi * 997.0 * static_cast<double>(i) / rate));
    return samples;
}

struct Case {
    int rate;
    int outRate;
    double speed;
};

class RenderResampled : public testing::TestWithParam<Case> {};

TEST_P(RenderResampled, IsAlignedAndAsLongAsTheRatioSays) {
    const auto [rate, outRate, speed] = GetParam();
    const Scratch scratch;
    const std::int64_t frames = 100'003;
    writeSamples(scratch.path("in.wav"), wav32, rate, 2, tone(frames, rate));
    const Finished finished =
        renderPlain({scratch.path("in.wav"), "-o", scratch.path("out.wav"), "--set",
                     "Resample/enable=1", "--set", "Resample/srate=" + std::to_string(outRate),
                     "--set", "Resample/speed=" + std::to_string(speed)});
    ASSERT_EQ(finished.exitCode, 0) << finished.err;
    const Decoded out = decode(scratch.path("out.wav"));
    const double played = outRate > 0 ? outRate : rate;
    EXPECT_EQ(out.rate, static_cast<int>(played));
    const auto single = static_cast<double>(static_cast<float>(speed)); // as settings hold it
    const std::int64_t expected =
        std::llround(static_cast<double>(frames) * played / rate / single);
    ASSERT_EQ(static_cast<std::int64_t>(out.samples.size()) / 2, expected);
    const std::vector<double> ideal = tone(expected, played / single);
    for (std::size_t i = 400; i + 400 < ideal.size(); ++i)
        ASSERT_NEAR(out.samples[i], ideal[i], 1e-5) << i / 2;
}

INSTANTIATE_TEST_SUITE_P(Ratios, RenderResampled,
                         testing::Values(Case{44100, 48000, 1.0}, Case{96000, 44100, 1.0},
                                         Case{48000, 0, 1.25}, Case{44100, 192000, 0.875}));

TEST(RenderParts, OfASongAreTheWholeToTheLastBit) {
    const Scratch scratch;
    writeNoise(scratch.path("whole.wav"), {wav32, 2, 44100, 120'000, 6});
    const std::vector<double> samples = decode(scratch.path("whole.wav")).samples;
    std::vector<std::string> arguments{"render"};
    std::size_t at = 0;
    for (const std::size_t frames : {30'011U, 999U, 55'555U, 1U, 33'434U}) {
        arguments.push_back(scratch.path("part" + std::to_string(at) + ".wav"));
        writeSamples(arguments.back(), wav32, 44100, 2,
                     {samples.begin() + static_cast<std::ptrdiff_t>(2 * at),
                      samples.begin() + static_cast<std::ptrdiff_t>(2 * (at + frames))});
        at += frames;
    }
    ASSERT_EQ(2 * at, samples.size());
    std::vector<std::string> whole{"render", scratch.path("whole.wav")};
    for (std::vector<std::string>* const list : {&arguments, &whole}) {
        for (const char* const setting :
             {"Output/bits=32", "Resample/enable=1", "Resample/srate=48000", "Resample/speed=1.05"})
            list->insert(list->end(), {"--set", setting});
        list->push_back("-o");
    }
    arguments.push_back(scratch.path("a.out.wav"));
    whole.push_back(scratch.path("b.out.wav"));
    ASSERT_EQ(run(arguments).exitCode, 0);
    ASSERT_EQ(run(whole).exitCode, 0);
    EXPECT_TRUE(decode(scratch.path("a.out.wav")).samples ==
                decode(scratch.path("b.out.wav")).samples);
}

} // namespace
} // namespace velorine::test
