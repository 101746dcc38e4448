#include "tests/player/AudioFiles.h"
#include "tests/player/Program.h"

#include <gtest/gtest.h>

#include <sndfile.h>

namespace velorine::test {
namespace {

using Names = std::vector<std::string>;

constexpr int wav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

struct Layout {
    const char* name;
    int subtype;
    int channels;
};

std::ostream& operator<<(std::ostream& out, const Layout& layout) {
    return out << layout.name << "x" << layout.channels;
}

class RenderFormat : public testing::TestWithParam<Layout> {};

TEST_P(RenderFormat, EqualsWhatTheDecoderGives) {
    const Layout layout = GetParam();
    const Scratch scratch;
    const std::string in = scratch.path("in.wav");
    const std::string out = scratch.path("out.wav");
    writeNoise(in, {SF_FORMAT_WAV | layout.subtype, layout.channels, 48000, 100'003, 7});

    const Finished finished = renderPlain({in, "-o", out});
    ASSERT_EQ(finished.exitCode, 0) << finished.err;
    EXPECT_EQ(finished.out + finished.err, "");

    const Decoded want = decode(in);
    const Decoded got = decode(out);
    EXPECT_EQ(got.format & SF_FORMAT_SUBMASK, layout.subtype);
    EXPECT_EQ(got.rate, 48000);
    EXPECT_EQ(got.channels, layout.channels);
    EXPECT_TRUE(got.samples == want.samples) << got.samples.size() << " samples";
}

std::vector<Layout> layouts() {
    std::vector<Layout> all;
    for (const int channels : {1, 2, 6}) {
        all.push_back({"int8", SF_FORMAT_PCM_U8, channels});
        all.push_back({"int16", SF_FORMAT_PCM_16, channels});
        all.push_back({"int24", SF_FORMAT_PCM_24, channels});
        all.push_back({"int32", SF_FORMAT_PCM_32, channels});
        all.push_back({"double", SF_FORMAT_DOUBLE, channels});
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(AllFormats, RenderFormat, testing::ValuesIn(layouts()),
                         testing::PrintToStringParamName());

struct Codec {
    const char* name;
    int format;
    int rate;
    int outSubtype;
};

std::ostream& operator<<(std::ostream& out, const Codec& codec) {
    return out << codec.name;
}

class RenderCodec : public testing::TestWithParam<Codec> {};

TEST_P(RenderCodec, EqualsWhatTheDecoderGives) {
    const Codec codec = GetParam();
    const Scratch scratch;
    const std::string in = scratch.path("in");
    const std::string out = scratch.path("out.wav");
    writeNoise(in, {codec.format, 2, codec.rate, 2 * codec.rate + 17, 3});

    const Finished finished = renderPlain({in, "-o", out});
    ASSERT_EQ(finished.exitCode, 0) << finished.err;
    EXPECT_EQ(finished.err, "");

    const Decoded got = decode(out);
    EXPECT_EQ(got.format & SF_FORMAT_SUBMASK, codec.outSubtype);
    EXPECT_TRUE(got.samples == decode(in).samples) << got.samples.size() << " samples";
}

INSTANTIATE_TEST_SUITE_P(
    AllCodecs, RenderCodec,
    testing::Values(Codec{"flac16", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 44100, SF_FORMAT_PCM_16},
                    Codec{"flac24", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 96000, SF_FORMAT_PCM_24},
                    Codec{"vorbis", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 44100, SF_FORMAT_DOUBLE},
                    Codec{"opus", SF_FORMAT_OGG | SF_FORMAT_OPUS, 48000, SF_FORMAT_DOUBLE},
                    Codec{"mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 44100,
                          SF_FORMAT_DOUBLE},
                    Codec{"float", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 44100, SF_FORMAT_DOUBLE},
                    Codec{"aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 22050, SF_FORMAT_PCM_16}),
    testing::PrintToStringParamName());

TEST(RenderSamples, SilenceAtTheStartStays) {
    const Scratch scratch;
    const std::string in = scratch.path("in.wav");
    std::vector<double> samples(44100, 0.0); // a second, which a host would let the module skip
    samples.back() = 0.25;
    writeSamples(in, wav16, 44100, 1, samples);

    ASSERT_EQ(renderPlain({in, "-o", scratch.path("out.wav")}).exitCode, 0);
    EXPECT_TRUE(decode(scratch.path("out.wav")).samples == samples);
}

TEST(RenderSamples, SeveralFilesAreOneGaplessStream) {
    const Scratch scratch;
    std::vector<double> want;
    Names arguments;
    for (const std::string name : {"a", "b", "c"}) {
        arguments.push_back(scratch.path(name));
        const auto seed = static_cast<std::uint32_t>(arguments.size());
        const int container = name == "b" ? SF_FORMAT_FLAC : SF_FORMAT_WAV;
        writeNoise(arguments.back(), {container | SF_FORMAT_PCM_16, 2, 44100, 30'011, seed});
        const std::vector<double> samples = decode(arguments.back()).samples;
        want.insert(want.end(), samples.begin(), samples.end());
    }
    arguments.insert(arguments.end(), {"-o", scratch.path("out.wav")});

    const Finished finished = renderPlain(arguments);
    ASSERT_EQ(finished.exitCode, 0) << finished.err;
    EXPECT_TRUE(decode(scratch.path("out.wav")).samples == want);
}

TEST(RenderSamples, OneFrameIsEnough) {
    const Scratch scratch;
    writeSamples(scratch.path("in.wav"), wav16, 44100, 2, {0.5, -0.25});
    ASSERT_EQ(renderPlain({scratch.path("in.wav"), "-o", scratch.path("out.wav")}).exitCode, 0);
    EXPECT_EQ(decode(scratch.path("out.wav")).samples, (std::vector<double>{0.5, -0.25}));
}

} // namespace
} // namespace velorine::test
