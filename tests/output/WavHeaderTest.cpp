#include "output/WavHeader.h"

#include "tests/output/WavParse.h"

#include <gtest/gtest.h>

namespace velorine {
namespace {

using test::Bytes;

Bytes headerBytes(const SampleFormat& format, std::int64_t dataBytes) {
    const auto header = wavHeader(format, dataBytes);
    return {header.begin(), header.end()};
}

TEST(WavHeader, StandsByteForByteForStereo16Bit) {
    Bytes wanted;
    test::put(wanted, "RIFF\xC4\x0F");
    test::put(wanted, 0, 2); // 4036
    test::put(wanted, "WAVEfmt ");
    test::put(wanted, 16, 4);
    test::put(wanted, 1, 2);
    test::put(wanted, 2, 2);
    test::put(wanted, 44100, 4);
    test::put(wanted, 176400, 4);
    test::put(wanted, 4, 2);
    test::put(wanted, 16, 2);
    test::put(wanted, "data");
    test::put(wanted, 4000, 4);
    EXPECT_EQ(headerBytes({sampleType::int16, 2, 44100}, 4000), wanted);
}

TEST(WavHeader, FieldsOfEveryType) {
    for (int type = 0; type <= 6; ++type) {
        for (const int channels : {1, 2, 6, 16}) {
            const Bytes data = test::pattern(960);
            const Bytes file = test::joined({headerBytes({type, channels, 96000}, 960), data});
            EXPECT_EQ(test::headerFault(file, type, static_cast<std::uint32_t>(channels), 96000),
                      "")
                << "type " << type << ", channels " << channels;
        }
    }
}

TEST(WavHeader, TwentyEightBitsTakeFourBytes) {
    const auto header = test::parseHeader(headerBytes({sampleType::int28, 2, 44100}, 0));
    ASSERT_TRUE(header);
    EXPECT_EQ(header->tag, 1u);
    EXPECT_EQ(header->bits, 28u);
    EXPECT_EQ(header->blockAlign, 8u);
    EXPECT_EQ(header->bytesPerSecond, 352800u);
}

TEST(WavHeader, UnknownTypeSaysSixteenBits) {
    const auto header = test::parseHeader(headerBytes({-1, 2, 44100}, 0));
    ASSERT_TRUE(header);
    EXPECT_EQ(header->bits, 16u);
    EXPECT_EQ(header->blockAlign, 2u);
}

TEST(WavHeader, SizesWithoutData) {
    for (const std::int64_t dataBytes : {std::int64_t{0}, std::int64_t{-1}, std::int64_t{-44}}) {
        const auto header = test::parseHeader(headerBytes({}, dataBytes));
        ASSERT_TRUE(header);
        EXPECT_EQ(header->riff, 36u);
        EXPECT_EQ(header->data, 0u);
    }
}

TEST(WavHeader, SizesBeyond32BitsStayAtTheLargest) {
    const struct {
        std::int64_t bytes;
        std::uint32_t riff, data;
    } cases[] = {
        {0xFFFFFFDA, 0xFFFFFFFE, 0xFFFFFFDA},  {0xFFFFFFDB, 0xFFFFFFFF, 0xFFFFFFDB},
        {0xFFFFFFDC, 0xFFFFFFFF, 0xFFFFFFDC},  {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF},
        {0x100000000, 0xFFFFFFFF, 0xFFFFFFFF}, {0x7FFFFFFFFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF},
    };
    for (const auto& [bytes, riff, data] : cases) {
        const auto header = test::parseHeader(headerBytes({}, bytes));
        ASSERT_TRUE(header);
        EXPECT_EQ(header->riff, riff) << bytes;
        EXPECT_EQ(header->data, data) << bytes;
    }
}

SampleFormat formatOf(unsigned tag, unsigned bits, std::span<const std::byte> subtype = {}) {
    const Bytes file = test::plainWav(tag, 6, 0xFFFFFFFF, bits, {});
    return wavFormat(std::span{file}.subspan<wavFieldsOffset, wavFieldsBytes>(), subtype);
}

TEST(WavHeader, ReadsTheTypeFromTagAndBits) {
    const struct {
        unsigned tag, bits;
        int type;
    } cases[] = {{1, 8, 0},   {1, 16, 1},      {1, 24, 2},      {1, 28, 3},
                 {1, 32, 4},  {1, 64, 6},      {3, 32, 5},      {3, 64, 6},
                 {3, 16, 1},  {7, 8, 0},       {1, 20, -1},     {1, 0, -1},
                 {3, 33, -1}, {0xFFFE, 32, 4}, {0xFFFE, 64, 6}, {0x0103, 32, 4}};
    for (const auto& [tag, bits, type] : cases)
        EXPECT_EQ(formatOf(tag, bits).type, type) << "tag " << tag << ", bits " << bits;
    EXPECT_EQ(formatOf(1, 16).channels, 6);
    EXPECT_EQ(formatOf(1, 16).rate, -1); // 0xFFFFFFFF, and comes back as it was
    const SampleFormat absurd = formatOf(1, 16);
    const auto again = test::parseHeader(headerBytes(absurd, 0));
    ASSERT_TRUE(again);
    EXPECT_EQ(again->rate, 0xFFFFFFFFu);
}

TEST(WavHeader, ReadsTheCodingOfAnExtensibleFormatFromItsGuid) {
    const Bytes floats = test::extensibleWav(3, 2, 48000, 32, {});
    const Bytes integers = test::extensibleWav(1, 2, 48000, 32, {});
    const auto subtype = [](const Bytes& file) { return std::span{file}.subspan(44, 16); };
    EXPECT_EQ(formatOf(0xFFFE, 32, subtype(floats)).type, sampleType::float32);
    EXPECT_EQ(formatOf(0xFFFE, 64, subtype(floats)).type, sampleType::float64);
    EXPECT_EQ(formatOf(0xFFFE, 24, subtype(floats)).type, sampleType::int24);
    EXPECT_EQ(formatOf(0xFFFE, 32, subtype(integers)).type, sampleType::int32);
    EXPECT_EQ(formatOf(1, 32, subtype(floats)).type, sampleType::int32); // the GUID isn't asked

    for (std::size_t i = 0; i < 16; ++i) { // every byte of it counts
        Bytes damaged = floats;
        damaged[44 + i] ^= std::byte{0x40};
        EXPECT_EQ(formatOf(0xFFFE, 32, subtype(damaged)).type, sampleType::int32) << i;
    }
}

} // namespace
} // namespace velorine
