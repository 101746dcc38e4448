#include "output/pulse/ChannelGains.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace velorine::test {
namespace {

using Side = ChannelGains::Side;

std::vector<std::byte> randomBytes(std::size_t count) {
    std::mt19937 random{11};
    std::vector<std::byte> bytes(count);
    for (std::byte& byte : bytes)
        byte = static_cast<std::byte>(random() % 256);
    return bytes;
}

template <typename Sample>
std::vector<Sample> scaled(std::vector<Sample> samples, ChannelGains gains, int volume, int pan) {
    gains.set(volume, pan);
    gains.apply(std::as_writable_bytes(std::span{samples}));
    return samples;
}

TEST(ChannelGains, FullVolumeInTheMiddleLeavesEveryBit) {
    for (const int bits : {8, 16, 24, 32}) {
        for (const int tag : {1, 3}) {
            ChannelGains gains{tag, tag == 3 ? 32 : bits, {Side::left, Side::right}};
            gains.set(-600, 300);
            EXPECT_FALSE(gains.transparent());
            gains.set(0, 0);
            EXPECT_TRUE(gains.transparent());
            const auto before = randomBytes(4800);
            auto after = before;
            gains.apply(after);
            EXPECT_EQ(after, before) << bits;
        }
    }
}

TEST(ChannelGains, SixDecibelsAreHalf) {
    constexpr int half = -602; // 10^(-6.02/20) = 0.50003
    EXPECT_EQ(scaled<std::int16_t>({20'000, -20'000}, {1, 16, {Side::both}}, half, 0),
              (std::vector<std::int16_t>{10'001, -10'001}));
    EXPECT_EQ(scaled<std::int32_t>({2'000'000'000}, {1, 32, {Side::both}}, half, 0),
              (std::vector<std::int32_t>{1'000'069'070}));
    EXPECT_EQ(scaled<std::uint8_t>({228, 28, 128}, {1, 8, {Side::both}}, half, 0),
              (std::vector<std::uint8_t>{178, 78, 128}));
    EXPECT_NEAR(scaled<float>({0.5F}, {3, 32, {Side::both}}, half, 0)[0], 0.25001726, 1e-7);
}

TEST(ChannelGains, PackedSamplesKeepTheirNeighbours) {
    // -2 and 8388607 in 24 bits, and a byte that isn't a whole sample.
    std::vector<std::byte> bytes{std::byte{0xFE}, std::byte{0xFF}, std::byte{0xFF}, std::byte{0xFF},
                                 std::byte{0xFF}, std::byte{0x7F}, std::byte{0x55}};
    ChannelGains gains{1, 24, {Side::left, Side::right}};
    gains.set(-602, 0); // by 0.5000345: to -1 and 4194593
    gains.apply(bytes);
    const std::vector<std::byte> expected{std::byte{0xFF}, std::byte{0xFF}, std::byte{0xFF},
                                          std::byte{0x21}, std::byte{0x01}, std::byte{0x40},
                                          std::byte{0x55}};
    EXPECT_EQ(bytes, expected);
}

TEST(ChannelGains, PanLowersTheOtherSide) {
    const ChannelGains gains{1, 16, {Side::left, Side::right, Side::both}};
    const std::vector<std::int16_t> frame{10'000, 10'000, 10'000};
    EXPECT_EQ(scaled(frame, gains, 0, 2000), (std::vector<std::int16_t>{1000, 10'000, 10'000}));
    EXPECT_EQ(scaled(frame, gains, 0, -2000), (std::vector<std::int16_t>{10'000, 1000, 10'000}));
    EXPECT_EQ(scaled(frame, gains, -2000, 2000), (std::vector<std::int16_t>{100, 1000, 1000}));
    EXPECT_EQ(scaled(frame, gains, 0, 10'000), (std::vector<std::int16_t>{0, 10'000, 10'000}));
}

TEST(ChannelGains, TheLowestVolumeIsSilence) {
    EXPECT_EQ(scaled<std::int32_t>({INT32_MAX, INT32_MIN}, {1, 32, {Side::both}}, -10'000, 0),
              (std::vector<std::int32_t>{0, 0}));
    EXPECT_EQ(scaled<std::uint8_t>({0, 255}, {1, 8, {Side::both}}, -10'000, 0),
              (std::vector<std::uint8_t>{128, 128}));
}

} // namespace
} // namespace velorine::test
