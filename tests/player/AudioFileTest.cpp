#include "player/AudioFile.h"
#include "tests/player/AudioFiles.h"

#include <gtest/gtest.h>

#include <sndfile.h>

#include <cstring>

namespace velorine {
namespace {

using test::Scratch;

template <typename Sample>
std::vector<Sample> readAll(AudioFile& file, std::size_t blockBytes) {
    std::vector<std::byte> all;
    std::vector<std::byte> block(blockBytes);
    for (;;) {
        const std::size_t bytes = file.read(block);
        if (bytes == 0) break;
        all.insert(all.end(), block.begin(), block.begin() + static_cast<std::ptrdiff_t>(bytes));
    }
    std::vector<Sample> samples(all.size() / sizeof(Sample));
    std::memcpy(samples.data(), all.data(), samples.size() * sizeof(Sample));
    return samples;
}

AudioFile fileOf(const Scratch& scratch, int subtype, const std::vector<double>& samples) {
    test::writeSamples(scratch.path("a.wav"), SF_FORMAT_WAV | subtype, 44100, 1, samples);
    return AudioFile{scratch.path("a.wav")};
}

const std::vector<double> levels{-1.0, -0.5, 0.0, 0.25, 127.0 / 128};

TEST(AudioFile, DecodesToTheDepthOfTheFile) {
    const Scratch scratch;
    using Bytes = std::vector<std::uint8_t>;
    AudioFile narrow = fileOf(scratch, SF_FORMAT_PCM_U8, levels);
    EXPECT_EQ(narrow.format(), (HostFormat{44100, 1, 8}));
    EXPECT_EQ(readAll<std::uint8_t>(narrow, 2), (Bytes{0, 64, 128, 160, 255}));

    AudioFile cd = fileOf(scratch, SF_FORMAT_PCM_16, levels);
    EXPECT_EQ(readAll<std::int16_t>(cd, 100),
              (std::vector<std::int16_t>{-32768, -16384, 0, 8192, 32512}));

    AudioFile studio = fileOf(scratch, SF_FORMAT_PCM_24, levels);
    EXPECT_EQ(readAll<std::uint8_t>(studio, 7), // two frames and a part of one
              (Bytes{0, 0, 0x80, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0x20, 0, 0, 0x7F}));

    AudioFile wide = fileOf(scratch, SF_FORMAT_PCM_32, levels);
    EXPECT_EQ(readAll<std::int32_t>(wide, 8),
              (std::vector<std::int32_t>{INT32_MIN, -(1 << 30), 0, 1 << 29, 127 << 24}));

    AudioFile exact = fileOf(scratch, SF_FORMAT_DOUBLE, {-1.0, 1.5, 1.0 / 3});
    EXPECT_EQ(exact.format().bits, 64);
    EXPECT_EQ(readAll<double>(exact, 16), (std::vector<double>{-1.0, 1.5, 1.0 / 3}));
}

TEST(AudioFile, SeekGoesToTheFrame) {
    const Scratch scratch;
    AudioFile file = fileOf(scratch, SF_FORMAT_PCM_16, levels);
    EXPECT_EQ(file.frames(), 5);
    EXPECT_TRUE(file.seek(3));
    EXPECT_EQ(file.position(), 3);
    EXPECT_EQ(readAll<std::int16_t>(file, 2), (std::vector<std::int16_t>{8192, 32512}));
    EXPECT_EQ(file.position(), 5);
    EXPECT_TRUE(file.problem().empty());
}

TEST(AudioFile, CutWavTellsAtOnce) {
    const Scratch scratch;
    const std::string path = scratch.path("a.wav");
    test::writeNoise(path, {SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 1000, 10'000, 1});
    test::cut(path, 0.5);
    const AudioFile file{path};
    EXPECT_EQ(file.problem(), "is cut short: 4994 of 10000 frames (0:04 of 0:10) are there");
}

TEST(AudioFile, CutFlacTellsAtItsEnd) {
    const Scratch scratch;
    const std::string path = scratch.path("a.flac");
    test::writeNoise(path, {SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 44100, 100'000, 1});
    test::cut(path, 0.5);
    AudioFile file{path};
    EXPECT_EQ(file.problem(), "");
    readAll<std::int16_t>(file, 4096);
    EXPECT_NE(file.problem().find(" of 100000 frames"), std::string::npos) << file.problem();
}

TEST(AudioFile, ShortfallIsTheChunkThatClaimsTooMuch) {
    const auto missing =
        shortfallIn("RIFF : 400036\nWAVE\n data : 400000 (should be 199978)\nEnd\n");
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->declared, 400000);
    EXPECT_EQ(missing->present, 199978);
    EXPECT_FALSE(shortfallIn("RIFF : 400036\nWAVE\ndata : 400000\nEnd\n"));
    EXPECT_FALSE(shortfallIn("RIFF : 36 (should be 400036)\n")) << "never closed, but whole";
    EXPECT_FALSE(shortfallIn(""));
}

TEST(AudioFile, LengthThatAPipeCannotKnowIsNoShortfall) {
    for (const char* size : {"4294967295", "2147483647", "2147479552"})
        EXPECT_FALSE(shortfallIn("data : " + std::string{size} + " (should be 1000)\n")) << size;
    EXPECT_TRUE(shortfallIn("data : 2000000000 (should be 1000)\n"));
}

} // namespace
} // namespace velorine
