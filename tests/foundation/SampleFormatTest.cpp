#include "foundation/SampleFormat.h"

#include <gtest/gtest.h>

#include <array>

namespace velorine::test {

namespace {

SampleFormat format(int type, int layout) {
    return {type, 2, 44100, layout};
}

TEST(SampleFormat, TableOfTypes) {
    struct Row {
        int type;
        int bytes;
        int bits;
        int tag;
        int silence;
    };
    for (const Row row :
         std::array{Row{0, 1, 8, 1, 0x80}, Row{1, 2, 16, 1, 0}, Row{2, 3, 24, 1, 0},
                    Row{3, 4, 28, 1, 0}, Row{4, 4, 32, 1, 0}, Row{5, 4, 32, 3, 0},
                    Row{6, 8, 64, 3, 0}, Row{7, 1, 16, 1, 0}, Row{-1, 1, 16, 1, 0}}) {
        EXPECT_EQ(bytesPerSample(row.type), row.bytes) << row.type;
        EXPECT_EQ(bitsPerSample(row.type), row.bits) << row.type;
        EXPECT_EQ(waveTag(row.type), row.tag) << row.type;
        EXPECT_EQ(silenceByte(row.type), row.silence) << row.type;
    }
    EXPECT_EQ(bytesPerFrame({sampleType::int24, 6, 48000, fullWidth}), 18);
    EXPECT_EQ(bytesPerFrame({sampleType::float64, 0, 48000, fullWidth}), 0);
}

TEST(SampleFormat, HostBitsHaveATypeOrNone) {
    EXPECT_EQ(typeForHostBits(8), 0);
    EXPECT_EQ(typeForHostBits(16), 1);
    EXPECT_EQ(typeForHostBits(24), 2);
    EXPECT_EQ(typeForHostBits(28), 3);
    EXPECT_EQ(typeForHostBits(32), 4);
    EXPECT_EQ(typeForHostBits(64), 6);
    EXPECT_EQ(typeForHostBits(20), -1);
    EXPECT_EQ(typeForHostBits(0), -1);
}

TEST(SampleFormat, EqualMeansTypeChannelsAndRate) {
    const SampleFormat a;
    EXPECT_TRUE(formatsEqual(a, a));
    SampleFormat b = a;
    b.type = sampleType::int24;
    EXPECT_FALSE(formatsEqual(a, b));
    b = a;
    b.channels = 1;
    EXPECT_FALSE(formatsEqual(a, b));
    b = a;
    b.rate = 44100;
    EXPECT_FALSE(formatsEqual(a, b));
}

TEST(SampleFormat, EqualMeansAsManyBitsThatCarrySignal) {
    EXPECT_TRUE(formatsEqual(format(1, 16), format(1, fullWidth)));
    EXPECT_TRUE(formatsEqual(format(1, 16), format(1, 24))); // the container has no more
    EXPECT_FALSE(formatsEqual(format(1, 14), format(1, 16)));
    EXPECT_TRUE(formatsEqual(format(1, 14), format(1, 14)));
    EXPECT_TRUE(formatsEqual(format(3, 28), format(3, 32)));
    EXPECT_FALSE(formatsEqual(format(3, 24), format(3, 32)));
    EXPECT_TRUE(formatsEqual(format(6, 64), format(6, fullWidth)));
    EXPECT_FALSE(formatsEqual(format(6, 32), format(6, fullWidth)));
    EXPECT_TRUE(formatsEqual(format(9, 16), format(9, 200))); // of an unknown type 16 count
    EXPECT_FALSE(formatsEqual(format(9, 15), format(9, 16)));
}

} // namespace

} // namespace velorine::test
