#include "output/WavHeader.h"

#include <algorithm>
#include <string_view>

namespace velorine {

namespace {

constexpr std::int64_t largestSize = 0xFFFFFFFF;

constexpr unsigned extensibleTag = 0xFFFE;
constexpr unsigned floatTag = 3;

/// KSDATAFORMAT_SUBTYPE_IEEE_FLOAT, 00000003-0000-0010-8000-00aa00389b71, as it lies in a file.
constexpr std::array<unsigned char, wavSubtypeBytes> floatSubtype = {
    0x03, 0, 0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71};

class LittleEndianWriter {
public:
    explicit LittleEndianWriter(std::byte* first) : next(first) {}

    void text(std::string_view four) {
        for (const char c : four)
            *next++ = static_cast<std::byte>(c);
    }
    void number(std::uint64_t value, int bytes) {
        for (int i = 0; i < bytes; ++i)
            *next++ = static_cast<std::byte>(value >> (8 * i) & 0xFF);
    }

private:
    std::byte* next;
};

std::uint32_t number(std::span<const std::byte> bytes) {
    std::uint32_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;)
        value = value << 8 | std::to_integer<std::uint32_t>(bytes[i]);
    return value;
}

unsigned tagOf(std::span<const std::byte, wavFieldsBytes> fields) {
    return number(fields.subspan(0, 2));
}

int typeForWavBits(unsigned bits, bool isFloat) {
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
        return isFloat ? sampleType::float32 : sampleType::int32;
    case 64:
        return sampleType::float64;
    default:
        return -1;
    }
}

} // namespace

std::array<std::byte, wavHeaderBytes> wavHeader(const SampleFormat& format,
                                                std::int64_t dataBytes) noexcept {
    const auto data =
        static_cast<std::uint64_t>(std::clamp<std::int64_t>(dataBytes, 0, largestSize));
    const auto riff =
        static_cast<std::uint64_t>(std::clamp<std::int64_t>(dataBytes, 0, largestSize - 36) + 36);
    const auto channels = static_cast<std::uint32_t>(format.channels);
    const auto rate = static_cast<std::uint32_t>(format.rate);
    const std::uint32_t frameBytes =
        channels * static_cast<std::uint32_t>(bytesPerSample(format.type));

    std::array<std::byte, wavHeaderBytes> header{};
    LittleEndianWriter out{header.data()};
    out.text("RIFF");
    out.number(riff, 4);
    out.text("WAVE");
    out.text("fmt ");
    out.number(wavFieldsBytes, 4);
    out.number(static_cast<std::uint64_t>(waveTag(format.type)), 2);
    out.number(channels, 2);
    out.number(rate, 4);
    out.number(std::uint64_t{rate} * frameBytes, 4);
    out.number(frameBytes, 2);
    out.number(static_cast<std::uint64_t>(bitsPerSample(format.type)), 2);
    out.text("data");
    out.number(data, 4);
    return header;
}

bool wavIsExtensible(std::span<const std::byte, wavFieldsBytes> fields) noexcept {
    return tagOf(fields) == extensibleTag;
}

SampleFormat wavFormat(std::span<const std::byte, wavFieldsBytes> fields,
                       std::span<const std::byte> subtype) noexcept {
    const bool floatGuid =
        std::equal(subtype.begin(), subtype.end(), floatSubtype.begin(), floatSubtype.end(),
                   [](std::byte a, unsigned char b) { return a == std::byte{b}; });
    const bool isFloat = tagOf(fields) == floatTag || (wavIsExtensible(fields) && floatGuid);

    SampleFormat format;
    format.type = typeForWavBits(number(fields.subspan(14, 2)), isFloat);
    format.channels = static_cast<std::int32_t>(number(fields.subspan(2, 2)));
    format.rate = static_cast<std::int32_t>(number(fields.subspan(4, 4)));
    return format;
}

} // namespace velorine
