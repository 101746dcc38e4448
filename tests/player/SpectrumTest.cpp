#include "tests/player/AudioFiles.h"
#include "tests/player/Program.h"

#include <gtest/gtest.h>

#include <sndfile.h>

namespace velorine::test {
namespace {

using Names = std::vector<std::string>;

constexpr int wav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

bool isPng(const std::string& path) {
    const std::vector<std::byte> bytes = bytesOf(path);
    return bytes.size() > 1000 && bytes[0] == std::byte{0x89} && bytes[1] == std::byte{'P'};
}

TEST(Spectrum, IsDrawnForAnyFormat) {
    const Scratch scratch;
    const NoiseFile files[] = {{wav16, 2, 44100, 60'000, 1},
                               {SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 1, 22050, 60'000, 2},
                               {SF_FORMAT_WAV | SF_FORMAT_PCM_24, 6, 96000, 60'000, 3},
                               {SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 8000, 60'000, 4}};
    for (const NoiseFile& file : files) {
        writeNoise(scratch.path("in.wav"), file);
        const Finished finished =
            run({"spectrum", scratch.path("in.wav"), "-o", scratch.path("out.png")});
        EXPECT_EQ(finished.exitCode, 0) << finished.err;
        EXPECT_EQ(finished.out, "");
        EXPECT_TRUE(isPng(scratch.path("out.png"))) << file.rate;
    }
}

TEST(Spectrum, SettingsShowInThePicture) {
    const Scratch scratch;
    writeNoise(scratch.path("in.wav"), {wav16, 2, 44100, 60'000, 1});
    ASSERT_EQ(run({"spectrum", scratch.path("in.wav"), "-o", scratch.path("a.png")}).exitCode, 0);
    ASSERT_EQ(run({"spectrum", scratch.path("in.wav"), "-o", scratch.path("b.png")}).exitCode, 0);
    ASSERT_EQ(run({"spectrum", scratch.path("in.wav"), "--set", "Eq/headroom=9", "-o",
                   scratch.path("c.png")})
                  .exitCode,
              0);
    EXPECT_EQ(bytesOf(scratch.path("a.png")), bytesOf(scratch.path("b.png")));
    EXPECT_NE(bytesOf(scratch.path("a.png")), bytesOf(scratch.path("c.png")));
}

/// A picture that can't be drawn, and the file that the message names.
struct Refused {
    Names arguments;
    const char* named;
};

class RefusedSpectrum : public testing::TestWithParam<Refused> {};

TEST_P(RefusedSpectrum, IsOneLineAndNoFile) {
    const Scratch scratch;
    writeNoise(scratch.path("in.wav"), {wav16, 2, 44100, 60'000, 1});
    writeNoise(scratch.path("short.wav"), {wav16, 2, 44100, 3000, 1});
    writeText(scratch.path("text.wav"), "no audio");
    const Names before = scratch.names();
    Names arguments{"spectrum"};
    for (const std::string& word : GetParam().arguments)
        arguments.push_back(
            word.find('.') != std::string::npos && word.front() != '-' ? scratch.path(word) : word);
    const Finished finished = run(arguments);
    EXPECT_EQ(finished.exitCode, 1);
    EXPECT_EQ(finished.errLines().size(), 1U) << finished.err;
    EXPECT_NE(finished.err.find(GetParam().named), std::string::npos) << finished.err;
    EXPECT_EQ(scratch.names(), before);
}

INSTANTIATE_TEST_SUITE_P(
    Reasons, RefusedSpectrum,
    testing::Values(Refused{{"none.wav", "-o", "out.png"}, "none.wav"},
                    Refused{{"text.wav", "-o", "out.png"}, "text.wav"},
                    Refused{{"short.wav", "-o", "out.png"}, "short.wav"},
                    Refused{{"in.wav", "-o", "no/folder/out.png"}, "out.png"},
                    Refused{{"in.wav", "--set", "Eq/enable=false", "-o", "out.png"}, "is off"}));

} // namespace
} // namespace velorine::test
