#include "tests/player/AudioFiles.h"

#include <sndfile.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <stdexcept>

#include <unistd.h>

namespace velorine::test {

namespace {

struct Closer {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using File = std::unique_ptr<SNDFILE, Closer>;

bool holdsIntegers(int format) {
    const int subtype = format & SF_FORMAT_SUBMASK;
    return subtype >= SF_FORMAT_PCM_S8 && subtype <= SF_FORMAT_PCM_U8;
}

/// At full scale 2^31, where the library would take 2^31 - 1.
std::vector<int> integersOf(const std::vector<double>& samples) {
    std::vector<int> integers(samples.size());
    std::transform(samples.begin(), samples.end(), integers.begin(), [](double sample) {
        const double limit = 2147483647.0;
        return static_cast<int>(std::clamp(sample * 2147483648.0, -limit - 1, limit));
    });
    return integers;
}

void check(bool done, const std::string& path) {
    if (!done) throw std::runtime_error(path + ": " + sf_strerror(nullptr));
}

} // namespace

Scratch::Scratch() {
    std::string pattern = (std::filesystem::temp_directory_path() / "velorine-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
    folder = pattern;
}

Scratch::~Scratch() {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

std::vector<std::string> Scratch::names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator{folder})
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

void writeNoise(const std::string& path, const NoiseFile& noise) {
    std::mt19937 random{noise.seed};
    std::uniform_real_distribution<double> level{-0.5, 0.5};
    std::vector<double> samples(static_cast<std::size_t>(noise.frames * noise.channels));
    for (double& sample : samples)
        sample = level(random);
    writeSamples(path, noise.format, noise.rate, noise.channels, samples);
}

void writeSamples(const std::string& path, int format, int rate, int channels,
                  const std::vector<double>& samples) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = format;
    const File file{sf_open(path.c_str(), SFM_WRITE, &info)};
    check(file != nullptr, path);
    const auto frames = static_cast<sf_count_t>(samples.size()) / channels;
    const sf_count_t written = holdsIntegers(format)
                                   ? sf_writef_int(file.get(), integersOf(samples).data(), frames)
                                   : sf_writef_double(file.get(), samples.data(), frames);
    check(written == frames, path);
}

Decoded decode(const std::string& path, std::int64_t frames) {
    SF_INFO info{};
    const File file{sf_open(path.c_str(), SFM_READ, &info)};
    check(file != nullptr, path);
    Decoded decoded{info.format, info.channels, info.samplerate, {}};
    std::vector<double> block(static_cast<std::size_t>(4096 * info.channels));
    while (frames > 0) {
        const sf_count_t got =
            sf_readf_double(file.get(), block.data(), std::min<sf_count_t>(frames, 4096));
        if (got <= 0) break;
        frames -= got;
        decoded.samples.insert(decoded.samples.end(), block.begin(),
                               block.begin() + got * info.channels);
    }
    return decoded;
}

std::vector<std::byte> bytesOf(const std::string& path) {
    std::ifstream stream{path, std::ios::binary};
    const std::string text{std::istreambuf_iterator<char>{stream}, {}};
    std::vector<std::byte> bytes(text.size());
    std::transform(text.begin(), text.end(), bytes.begin(),
                   [](char c) { return static_cast<std::byte>(c); });
    return bytes;
}

void writeText(const std::string& path, const std::string& text) {
    std::ofstream{path, std::ios::binary} << text;
}

void cut(const std::string& path, double share) {
    const auto size = static_cast<double>(std::filesystem::file_size(path));
    std::filesystem::resize_file(path, static_cast<std::uintmax_t>(size * share));
}

void growWithSilence(const std::string& path, std::int64_t dataBytes) {
    std::fstream stream{path, std::ios::binary | std::ios::in | std::ios::out};
    const auto put = [&stream](std::streamoff offset, std::int64_t value) {
        stream.seekp(offset);
        for (int shift = 0; shift < 32; shift += 8)
            stream.put(static_cast<char>(value >> shift & 0xFF));
    };
    put(4, dataBytes + 36);
    put(40, dataBytes);
    stream.close();
    std::filesystem::resize_file(path, static_cast<std::uintmax_t>(dataBytes + 44));
}

} // namespace velorine::test
