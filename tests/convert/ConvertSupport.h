#pragma once

#include "foundation/EntropySource.h"
#include "foundation/SampleFormat.h"
#include "stages/convert/SampleConverter.h"

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <random>
#include <span>
#include <vector>

namespace velorine {

using Bytes = std::vector<std::uint8_t>;

/// Generators that are made while this stands all get the same seed.
class FixedEntropy final : public EntropySource {
public:
    explicit FixedEntropy(std::uint32_t value) : fixed(value) { install(this); }
    FixedEntropy(const FixedEntropy&) = delete;
    FixedEntropy& operator=(const FixedEntropy&) = delete;
    ~FixedEntropy() override { install(nullptr); }

    std::uint32_t seed() override { return fixed; }

private:
    std::uint32_t fixed;
};

constexpr SampleFormat formatOf(int type, int channels, int layout = fullWidth) {
    return {type, channels, 48000, layout};
}

template <typename T>
Bytes bytesOf(std::initializer_list<T> samples) {
    Bytes bytes(samples.size() * sizeof(T));
    std::memcpy(bytes.data(), samples.begin(), bytes.size());
    return bytes;
}

template <typename T>
Bytes bytesOf(const std::vector<T>& samples) {
    Bytes bytes(samples.size() * sizeof(T));
    std::memcpy(bytes.data(), samples.data(), bytes.size());
    return bytes;
}

template <typename T>
std::vector<T> samplesOf(const Bytes& bytes) {
    std::vector<T> samples(bytes.size() / sizeof(T));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(T));
    return samples;
}

/// Frames side by side through a converter; what it doesn't write stays `fill`.
Bytes convertBytes(SampleConverter& converter, const Bytes& source, const SampleFormat& from,
                   const SampleFormat& to, std::uint8_t fill = 0);

/// Random samples: integers over their whole range, floats to 1.3 times full scale, with some at
/// full scale and some at 0.
Bytes noiseBytes(int type, int samples, std::uint32_t seed);

} // namespace velorine
