#include "tests/kestrix/KestrixModel.h"
#include "tests/kestrix/KestrixRig.h"
#include "tests/player/AudioFiles.h"
#include "tests/player/Program.h"

#include <gtest/gtest.h>

#include <sndfile.h>

namespace velorine::test {
namespace {

constexpr int wav32 = SF_FORMAT_WAV | SF_FORMAT_PCM_32;

/// RMS of the difference to RMS of what is expected, dB.
double errorDb(const std::vector<double>& got, const std::vector<double>& expected) {
    double error = 0.0;
    double power = 0.0;
    for (std::size_t i = 0; i < got.size(); ++i) {
        error += (got[i] - expected[i]) * (got[i] - expected[i]);
        power += expected[i] * expected[i];
    }
    return 10.0 * std::log10(error / power);
}

class RenderWithTheProcessor : public testing::TestWithParam<int> {};

TEST_P(RenderWithTheProcessor, IsWhatTheModelMakesOfTheFile) {
    const int rate = GetParam();
    const Scratch scratch;
    writeNoise(scratch.path("in.wav"), {wav32, 2, rate, 2 * rate, 11});
    const Finished finished =
        run({"render", scratch.path("in.wav"), "-o", scratch.path("out.wav")});
    ASSERT_EQ(finished.exitCode, 0) << finished.err;

    const Decoded in = decode(scratch.path("in.wav"));
    const Decoded out = decode(scratch.path("out.wav"));
    ASSERT_EQ(out.samples.size(), in.samples.size());
    KestrixModel model{factorySettings(), static_cast<double>(rate)};
    // The programme is aligned: the processor's half frame is made up for ahead of it.
    std::vector<float> pairs(static_cast<std::size_t>(model.frameLen));
    for (const double sample : in.samples)
        pairs.push_back(static_cast<float>(sample));
    pairs.resize(pairs.size() + 8 * static_cast<std::size_t>(model.fftLen));
    std::vector<double> expected = model.process(pairs);
    ASSERT_GE(expected.size(), out.samples.size());
    expected.resize(out.samples.size());
    EXPECT_LT(errorDb(out.samples, expected), -110.0);
}

INSTANTIATE_TEST_SUITE_P(Rates, RenderWithTheProcessor, testing::Values(44100, 48000, 96000));

} // namespace
} // namespace velorine::test
