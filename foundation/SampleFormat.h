#pragma once

#include <cstdint>

namespace velorine {

/// Sample format ids, as they travel through the whole system.
namespace sampleType {
inline constexpr int int8 = 0;    ///< unsigned, offset 128
inline constexpr int int16 = 1;   ///< signed
inline constexpr int int24 = 2;   ///< signed, 3 bytes little-endian
inline constexpr int int28 = 3;   ///< signed, 4 bytes: scaled as 24 bits, with 8 bits of headroom
inline constexpr int int32 = 4;   ///< signed
inline constexpr int float32 = 5; ///< 1.0 = full scale
inline constexpr int float64 = 6; ///< 1.0 = full scale
} // namespace sampleType

inline constexpr int fullWidth = 0x100; ///< `layout`: every bit of the container is valid

/// What a run of frames is made of; the channels of a frame are interleaved.
struct SampleFormat {
    std::int32_t type = sampleType::int16;
    std::int32_t channels = 2;
    std::int32_t rate = 48000;       ///< Hz
    std::int32_t layout = fullWidth; ///< valid bits of the sample container

    friend bool operator==(const SampleFormat&, const SampleFormat&) = default;
};

/// Bytes of one sample; 1 for an unknown type.
constexpr int bytesPerSample(int type) noexcept {
    constexpr int bytes[] = {1, 2, 3, 4, 4, 4, 8};
    return type >= 0 && type <= 6 ? bytes[type] : 1;
}

/// Nominal bits of one sample: 28 for type 3. 16 for an unknown type.
constexpr int bitsPerSample(int type) noexcept {
    constexpr int bits[] = {8, 16, 24, 28, 32, 32, 64};
    return type >= 0 && type <= 6 ? bits[type] : 16;
}

constexpr bool isFloatType(int type) noexcept {
    return type == sampleType::float32 || type == sampleType::float64;
}

/// Tag in a WAVE header: 3 for float, 1 for all others.
constexpr int waveTag(int type) noexcept {
    return isFloatType(type) ? 3 : 1;
}

/// Byte that fills a buffer with silence.
constexpr std::uint8_t silenceByte(int type) noexcept {
    return type == sampleType::int8 ? 0x80 : 0;
}

constexpr int bytesPerFrame(const SampleFormat& format) noexcept {
    return bytesPerSample(format.type) * format.channels;
}

/// Type for the bit depth that a host opens a stream with, or -1 when there is none.
constexpr int typeForHostBits(int bits) noexcept {
    switch (bits) {
    case 8:
        return sampleType::int8;
    case 16:
        return sampleType::int16;
    case 24:
        return sampleType::int24;
    case 28:
        return sampleType::int28;
    case 32:
        return sampleType::int32;
    case 64:
        return sampleType::float64;
    default:
        return -1;
    }
}

/// Bits that carry signal: the stated depth, but no more than the container has.
constexpr int effectiveBits(const SampleFormat& format) noexcept {
    const int nominal = bitsPerSample(format.type);
    return format.layout < nominal ? format.layout : nominal;
}

/// Same type, channels and rate, and as many bits that carry signal.
constexpr bool formatsEqual(const SampleFormat& a, const SampleFormat& b) noexcept {
    return a.type == b.type && a.channels == b.channels && a.rate == b.rate &&
           effectiveBits(a) == effectiveBits(b);
}

} // namespace velorine
