#include "host/Module.h"
#include "tests/player/AudioFiles.h"

#include <gtest/gtest.h>

#include <sched.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>

namespace velorine::test {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::byte>;

std::vector<std::string> music() {
    std::vector<std::string> files;
    std::error_code missing;
    for (const auto& entry : fs::directory_iterator{VELORINE_MUSIC, missing})
        if (entry.is_regular_file()) files.push_back(entry.path().string());
    std::sort(files.begin(), files.end());
    return files;
}

TEST(RealMusic, IsThereInBothRates) {
    std::map<int, int> filesOfRate;
    for (const std::string& file : music()) {
        const Decoded decoded = decode(file);
        ++filesOfRate[decoded.rate];
        EXPECT_GT(decoded.samples.size(), std::size_t{10} * 44100) << file;
    }
    EXPECT_GE(filesOfRate[44100], 1);
    EXPECT_GE(filesOfRate[48000], 1);
    EXPECT_GE(filesOfRate[44100] + filesOfRate[48000], 3);
}

/// What a host writes of a decoded file, in a depth and a number of channels.
Bytes hostData(const Decoded& decoded, int bits, int channels) {
    const auto from = static_cast<std::size_t>(decoded.channels);
    const std::size_t frames = decoded.samples.size() / from;
    Bytes data;
    for (std::size_t frame = 0; frame < frames; ++frame)
        for (std::size_t channel = 0; channel < static_cast<std::size_t>(channels); ++channel) {
            // A channel that the file hasn't is one of the others, fainter.
            const std::size_t rounds = 1 + channel / from;
            const double sample =
                decoded.samples[frame * from + channel % from] / static_cast<double>(rounds);
            std::int64_t whole =
                std::llround(std::clamp(sample, -1.0, 1.0) * (std::ldexp(1.0, bits - 1) - 1));
            if (bits == 8) whole += 128;
            std::byte raw[8];
            if (bits == 64)
                std::memcpy(raw, &sample, sizeof sample);
            else
                std::memcpy(raw, &whole, sizeof whole); // little-endian: the low bytes come first
            data.insert(data.end(), raw, raw + bits / 8);
        }
    return data;
}

/// Records `data` through the module's record in writes of one frame for the first 5,000, then of
/// random length up to 64 KiB, each with a part of a frame behind it that belongs to nothing.
void record(const Bytes& data, int rate, int channels, int bits, const std::string& path) {
    const std::size_t frameBytes = static_cast<std::size_t>(channels * bits / 8);
    ModuleOptions options;
    options.storeSettings = false;
    options.recordMode = 1;
    options.recordPath = path;
    options.useSound = false;
    options.overlay = {{"Output", "bits", 1, {}}, {"Eq", "enable", 0, {}}};
    setModuleOptions(options);

    Out_Module& out = *winampGetOutModule();
    out.Init();
    out.Open(rate, channels, bits, 0, 0);
    std::mt19937 random{static_cast<std::uint32_t>(channels * bits)};
    int writes = 0;
    for (std::size_t done = 0; done < data.size(); ++writes) {
        while (out.CanWrite() == 0)
            sched_yield();
        const std::size_t frames = writes < 5000 ? 1 : 1 + random() % (65536 / frameBytes);
        const std::size_t bytes = std::min(frames * frameBytes, data.size() - done);
        Bytes piece(data.begin() + static_cast<std::ptrdiff_t>(done),
                    data.begin() + static_cast<std::ptrdiff_t>(done + bytes));
        piece.resize(bytes + random() % frameBytes, std::byte{0x55});
        out.Write(reinterpret_cast<char*>(piece.data()), static_cast<int>(piece.size()));
        done += bytes;
    }
    const auto frames = static_cast<std::int64_t>(data.size() / frameBytes);
    while (moduleStatus().recordedFrames < frames)
        sched_yield();
    out.Quit();
    setModuleOptions({});
}

class RealMusicFormat : public testing::TestWithParam<std::pair<int, int>> {};

TEST_P(RealMusicFormat, IsRecordedBitForBitHoweverItIsSplit) {
    const auto [bits, channels] = GetParam();
    const Scratch scratch;
    const std::vector<std::string> files = music();
    ASSERT_GE(files.size(), 3U) << "no music in " << VELORINE_MUSIC
                                << ": scripts/real-music.sh fetches it";
    for (const std::string& file : files) {
        const Decoded decoded = decode(file, 4 * 48000 + 13);
        const Bytes data = hostData(decoded, bits, channels);
        const std::string path = scratch.path("out.wav");
        record(data, decoded.rate, channels, bits, path);

        const Bytes recorded = bytesOf(path);
        ASSERT_EQ(recorded.size(), data.size() + 44) << file;
        EXPECT_TRUE(std::equal(data.begin(), data.end(), recorded.begin() + 44)) << file;
    }
}

std::vector<std::pair<int, int>> formats() {
    std::vector<std::pair<int, int>> all;
    for (const int bits : {8, 16, 24, 32, 64})
        for (const int channels : {1, 2, 6})
            all.emplace_back(bits, channels);
    return all;
}

INSTANTIATE_TEST_SUITE_P(AllFormats, RealMusicFormat, testing::ValuesIn(formats()),
                         [](const auto& format) {
                             return std::to_string(format.param.first) + "x" +
                                    std::to_string(format.param.second);
                         });

} // namespace
} // namespace velorine::test
