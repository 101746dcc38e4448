#pragma once

#include "foundation/SampleFormat.h"

#include <array>
#include <cstdint>
#include <random>
#include <vector>

namespace velorine {

/// The converter as one would write it down on paper, one sample at a time, with the standard
/// library's generator: what the real one is held against.
class ReferenceConverter {
public:
    explicit ReferenceConverter(std::uint32_t seed) : generator(seed) {}

    bool ditherOn = true;
    bool shapingOn = false;

    /// `frames` frames side by side, to as many frames side by side. Destinations that stay
    /// unwritten come back as `unwritten` bytes.
    std::vector<std::uint8_t> convert(const std::vector<std::uint8_t>& source,
                                      const SampleFormat& sourceFormat,
                                      const SampleFormat& destinationFormat, int frames);

    static constexpr std::uint8_t unwritten = 0xa5;

    /// Value of a sample as stored, 8 bits without their offset.
    static double valueOf(const std::uint8_t* bytes, int type);
    static void storeInteger(std::uint8_t* bytes, int type, std::int64_t value);

private:
    struct Setup;

    static Setup setUp(const SampleFormat& source, const SampleFormat& destination, bool ditherOn,
                       bool shapingOn);
    std::int64_t quantise(const Setup& setup, double x, std::size_t channel);
    double shaped(double x, std::size_t channel);
    double draw() { return static_cast<double>(generator()) / 4294967296.0; }

    std::mt19937 generator;
    std::array<std::vector<std::int16_t>, 16> errors; ///< of each channel, all there ever were
    std::array<float, 16> lastError{};
};

} // namespace velorine
