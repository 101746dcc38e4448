#pragma once

#include "foundation/SampleFormat.h"
#include "tests/output/MemoryRecorderFiles.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <optional>
#include <string>

namespace velorine::test {

/// The fields of a 44-byte header, as they stand in the file.
struct ParsedHeader {
    std::uint32_t riff, fmtSize, tag, channels, rate, bytesPerSecond, blockAlign, bits, data;
};

inline std::uint64_t numberAt(const Bytes& file, std::size_t offset, std::size_t bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bytes; ++i)
        value |= std::to_integer<std::uint64_t>(file[offset + i]) << (8 * i);
    return value;
}

inline bool textAt(const Bytes& file, std::size_t offset, const char (&four)[5]) {
    for (std::size_t i = 0; i < 4; ++i)
        if (std::to_integer<char>(file[offset + i]) != four[i]) return false;
    return true;
}

/// Nothing when the file has no header of this form.
inline std::optional<ParsedHeader> parseHeader(const Bytes& file) {
    if (file.size() < 44) return std::nullopt;
    if (!textAt(file, 0, "RIFF") || !textAt(file, 8, "WAVE") || !textAt(file, 12, "fmt ") ||
        !textAt(file, 36, "data"))
        return std::nullopt;
    const auto field = [&](std::size_t offset, std::size_t bytes) {
        return static_cast<std::uint32_t>(numberAt(file, offset, bytes));
    };
    return ParsedHeader{field(4, 4),  field(16, 4), field(20, 2), field(22, 2), field(24, 4),
                        field(28, 4), field(32, 2), field(34, 2), field(40, 4)};
}

/// What the header of a format says, written out by hand for each sample type.
struct HeaderRow {
    std::uint32_t tag, bits, sampleBytes;
};
inline constexpr std::array<HeaderRow, 7> headerRows = {
    {{1, 8, 1}, {1, 16, 2}, {1, 24, 3}, {1, 28, 4}, {1, 32, 4}, {3, 32, 4}, {3, 64, 8}}};

/// Empty when the file's header fits its format and its size; else what is wrong.
inline std::string headerFault(const Bytes& file, int type, std::uint32_t channels,
                               std::uint32_t rate) {
    const auto header = parseHeader(file);
    if (!header) return "no header";
    const HeaderRow& row = headerRows[static_cast<std::size_t>(type)];
    const struct {
        const char* name;
        std::uint64_t is, wanted;
    } fields[] = {
        {"riff", header->riff, file.size() - 8},
        {"fmt", header->fmtSize, 16},
        {"tag", header->tag, row.tag},
        {"channels", header->channels, channels},
        {"rate", header->rate, rate},
        {"bytes/s", header->bytesPerSecond, rate * channels * row.sampleBytes},
        {"align", header->blockAlign, channels * row.sampleBytes},
        {"bits", header->bits, row.bits},
        {"data", header->data, file.size() - 44},
    };
    for (const auto& field : fields)
        if (field.is != field.wanted)
            return std::string{field.name} + " is " + std::to_string(field.is) + ", not " +
                   std::to_string(field.wanted);
    return {};
}

inline void put(Bytes& to, std::uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        to.push_back(static_cast<std::byte>(value >> (8 * i) & 0xFF));
}

inline void put(Bytes& to, const char* text) {
    for (; *text; ++text)
        to.push_back(static_cast<std::byte>(*text));
}

/// A file as other programs write it, with `data` behind a 16-byte format chunk.
inline Bytes plainWav(unsigned tag, unsigned channels, unsigned rate, unsigned bits,
                      const Bytes& data) {
    const unsigned align = channels * bits / 8;
    Bytes file;
    put(file, "RIFF");
    put(file, data.size() + 36, 4);
    put(file, "WAVEfmt ");
    put(file, 16, 4);
    put(file, tag, 2);
    put(file, channels, 2);
    put(file, rate, 4);
    put(file, std::uint64_t{rate} * align, 4);
    put(file, align, 2);
    put(file, bits, 2);
    put(file, "data");
    put(file, data.size(), 4);
    file.insert(file.end(), data.begin(), data.end());
    return file;
}

/// The same with an extensible format chunk; `subtype` 1 is integer, 3 float.
inline Bytes extensibleWav(unsigned subtype, unsigned channels, unsigned rate, unsigned bits,
                           const Bytes& data) {
    const unsigned align = channels * bits / 8;
    Bytes file;
    put(file, "RIFF");
    put(file, data.size() + 60, 4);
    put(file, "WAVEfmt ");
    put(file, 40, 4);
    put(file, 0xFFFE, 2);
    put(file, channels, 2);
    put(file, rate, 4);
    put(file, std::uint64_t{rate} * align, 4);
    put(file, align, 2);
    put(file, bits, 2);
    put(file, 22, 2);
    put(file, bits, 2);
    put(file, 3, 4);
    put(file, subtype, 2);
    for (const int byte : {0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71})
        put(file, static_cast<std::uint64_t>(byte), 1);
    put(file, "data");
    put(file, data.size(), 4);
    file.insert(file.end(), data.begin(), data.end());
    return file;
}

/// Bytes that tell their own place in a stream.
inline Bytes pattern(std::size_t count, std::size_t first = 0) {
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t n = first + i;
        bytes[i] = static_cast<std::byte>((n * 167 + n / 251) & 0xFF);
    }
    return bytes;
}

/// What a file holds behind its header.
inline Bytes dataOf(const Bytes& file) {
    return file.size() <= 44 ? Bytes{} : Bytes(file.begin() + 44, file.end());
}

inline Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

} // namespace velorine::test
