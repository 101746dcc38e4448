#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

namespace velorine::test {

/// A folder for one test, removed with all that is in it.
class Scratch {
public:
    Scratch();
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    std::string path(const std::string& name) const { return (folder / name).string(); }
    std::vector<std::string> names() const; ///< of the files in it, sorted

private:
    std::filesystem::path folder;
};

/// What a file of noise is made of.
struct NoiseFile {
    int format = 0; ///< libsndfile's
    int channels = 2;
    int rate = 44100;
    std::int64_t frames = 0;
    std::uint32_t seed = 1;
};

/// Writes noise at half of full scale.
void writeNoise(const std::string& path, const NoiseFile& noise);

/// Writes samples of a file that libsndfile knows.
void writeSamples(const std::string& path, int format, int rate, int channels,
                  const std::vector<double>& samples);

/// A file as libsndfile decodes it.
struct Decoded {
    int format = 0;
    int channels = 0;
    int rate = 0;
    std::vector<double> samples; ///< interleaved
};

/// At most its first `frames` frames. @throws std::runtime_error when it isn't audio
Decoded decode(const std::string& path,
               std::int64_t frames = std::numeric_limits<std::int64_t>::max());

std::vector<std::byte> bytesOf(const std::string& path);
void writeText(const std::string& path, const std::string& text);

/// Keeps the first `share` of a file.
void cut(const std::string& path, double share);

/// Grows a WAV file of 44 bytes of header with silence that takes no disk space, and has its header
/// say so.
void growWithSilence(const std::string& path, std::int64_t dataBytes);

} // namespace velorine::test
