#include "config/MemoryStore.h"
#include "foundation/Kernel.h"
#include "host/Module.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace velorine::test {
namespace {

constexpr int rate = 44100;
constexpr int outRate = 48000;
constexpr std::size_t headerBytes = 44;

/// Eight seconds, 16 bits, stereo: chords that begin anew each half second over a little noise. Of
/// whole numbers alone, so that every machine has the same.
std::vector<std::int16_t> music() {
    std::mt19937 random{1};
    std::vector<std::int16_t> samples;
    std::uint32_t phases[4] = {};
    const std::uint32_t steps[4] = {5'000'000, 21'428'571, 77'900'000, 401'000'000};
    for (int i = 0; i < 8 * rate; ++i) {
        const int decay = 22050 - i % 22050;
        std::int64_t sum = 0;
        for (int tone = 0; tone < 4; ++tone) {
            phases[tone] += steps[tone];
            const auto triangle = static_cast<std::int64_t>(phases[tone] >> 16) - 32768;
            sum += (std::abs(triangle) - 16384) * decay / 22050 / (tone + 1);
        }
        for (int side = 0; side < 2; ++side)
            samples.push_back(static_cast<std::int16_t>(sum * (3 + side) / 5 +
                                                        static_cast<int>(random() % 512) - 256));
    }
    return samples;
}

std::uint32_t bitsOf(float value) {
    return std::bit_cast<std::uint32_t>(value);
}

/// Records the music through processor and resampler in 32 bits, whose dither is 60 dB below what
/// singles can tell apart.
void render(const std::string& path) {
    MemoryStore store;
    ModuleOptions options;
    options.store = &store;
    options.useSound = false;
    options.recordMode = 1;
    options.recordPath = path;
    options.overlay = {{"Output", "bits", 32, {}},
                       {"Eq", "enable", 1, {}},
                       {"Resample", "enable", 1, {}},
                       {"Resample", "srate", bitsOf(outRate), {}}};
    setModuleOptions(options);

    std::vector<std::int16_t> samples = music();
    Out_Module& out = *winampGetOutModule();
    out.Init();
    out.Open(rate, 2, 16, 0, 0);
    constexpr std::size_t piece = 2 * 1152;
    for (std::size_t done = 0; done + piece <= samples.size(); done += piece) {
        while (out.CanWrite() == 0)
            kernel().sleep(1);
        out.Write(reinterpret_cast<char*>(samples.data() + done), 2 * piece);
    }
    const std::int64_t whole = std::int64_t{8} * outRate - outRate / 4; // the processor keeps some
    while (moduleStatus().recordedFrames < whole)
        kernel().sleep(1);
    out.Quit();
    setModuleOptions({});
}

std::vector<std::int32_t> read(const std::string& path) {
    std::ifstream file{path, std::ios::binary};
    const std::vector<char> bytes{std::istreambuf_iterator<char>{file}, {}};
    std::vector<std::int32_t> samples;
    for (std::size_t i = headerBytes; i + 4 <= bytes.size(); i += 4) {
        std::uint32_t value = 0;
        for (std::size_t k = 0; k < 4; ++k)
            value |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i + k]))
                     << (8 * k);
        samples.push_back(static_cast<std::int32_t>(value));
    }
    return samples;
}

double power(const std::vector<std::int32_t>& samples) {
    double sum = 0.0;
    for (const std::int32_t sample : samples)
        sum += std::pow(sample / 0x1p31, 2);
    return sum / static_cast<double>(samples.size());
}

class Agreement : public testing::Test {
protected:
    Agreement() { render(VELORINE_RENDITION); }

    const std::size_t least = std::size_t{2} * 7 * outRate;
};

TEST_F(Agreement, RenditionHoldsTheMusic) {
    const std::vector<std::int32_t> own = read(VELORINE_RENDITION);
    ASSERT_GT(own.size(), least);
    EXPECT_GT(power(own), 1e-4);
    EXPECT_LT(power(own), 0.5);
}

#if defined(VELORINE_OTHER_RENDITION)
TEST_F(Agreement, BothBuildsMakeTheSameOfMusic) {
    const std::vector<std::int32_t> own = read(VELORINE_RENDITION);
    const std::vector<std::int32_t> other = read(VELORINE_OTHER_RENDITION);
    ASSERT_GT(own.size(), least);
    ASSERT_GT(other.size(), least);
    double largest = 0.0;
    for (std::size_t i = 0; i < std::min(own.size(), other.size()); ++i)
        largest = std::max(largest, std::abs(static_cast<double>(own[i]) - other[i]) / 0x1p31);
    RecordProperty("largestDifferenceDb", static_cast<int>(20.0 * std::log10(largest + 1e-12)));
    EXPECT_LE(largest, 1e-6); // -120 dB
}
#endif

} // namespace
} // namespace velorine::test
