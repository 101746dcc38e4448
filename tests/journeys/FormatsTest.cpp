#include "tests/support/TestHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <vector>

namespace velorine::test {
namespace {

using Bytes = std::vector<std::byte>;

struct TrackFormat {
    int bits;
    int channels;
    int rate;

    std::size_t frameBytes() const {
        return static_cast<std::size_t>(bits) / 8 * static_cast<std::size_t>(channels);
    }
    friend bool operator==(const TrackFormat&, const TrackFormat&) = default;
};

constexpr TrackFormat voice{8, 1, 22050};
constexpr TrackFormat disc{16, 2, 44100};
constexpr TrackFormat studio{24, 2, 48000};
constexpr TrackFormat surround{16, 6, 48000};

/// No two frames of it alike for long; its first sample is loud in every depth.
Bytes noise(const TrackFormat& format, int ms, std::uint32_t seed) {
    std::mt19937 random{seed};
    const auto frames = static_cast<std::size_t>(ms) * static_cast<std::size_t>(format.rate) / 1000;
    Bytes bytes(frames * format.frameBytes());
    for (std::byte& byte : bytes)
        byte = static_cast<std::byte>(random());
    bytes[static_cast<std::size_t>(format.bits / 8 - 1)] = std::byte{0x10};
    return bytes;
}

/// What one device played of one track, however often it stood meanwhile.
struct Heard {
    TrackFormat format;
    Bytes bytes;
    std::int64_t startTick = 0;
    std::int64_t endTick = 0; ///< of its last frame that isn't silent
};

std::byte silenceOf(const TrackFormat& format) {
    return format.bits == 8 ? std::byte{0x80} : std::byte{0};
}

std::vector<Heard> heardByDevice(TestSound& sound) {
    std::vector<Heard> devices;
    for (const TestSound::Passage& passage : sound.passages()) {
        const TrackFormat format{passage.format.containerBits, passage.format.channels,
                                 passage.format.rate};
        if (passage.frames.empty()) continue;
        if (devices.empty() || !(devices.back().format == format))
            devices.push_back({format, {}, passage.startTick, 0});
        Heard& heard = devices.back();
        const auto sounding = std::find_if(passage.frames.rbegin(), passage.frames.rend(),
                                           [&](std::byte b) { return b != silenceOf(format); });
        const std::int64_t frames =
            (passage.frames.rend() - sounding) / static_cast<std::ptrdiff_t>(format.frameBytes());
        if (frames > 0) heard.endTick = passage.startTick + frames * 10'000'000 / format.rate;
        heard.bytes.insert(heard.bytes.end(), passage.frames.begin(), passage.frames.end());
    }
    return devices;
}

/// All of a track and nothing else but the silence behind it.
void expectHeard(const Heard& heard, const TrackFormat& format, const Bytes& track) {
    EXPECT_EQ(heard.format, format);
    ASSERT_GE(heard.bytes.size(), track.size());
    const auto apart = std::mismatch(track.begin(), track.end(), heard.bytes.begin()).first;
    EXPECT_EQ(apart, track.end()) << "frame "
                                  << (apart - track.begin()) /
                                         static_cast<std::ptrdiff_t>(format.frameBytes());
    EXPECT_TRUE(std::all_of(heard.bytes.begin() + static_cast<std::ptrdiff_t>(track.size()),
                            heard.bytes.end(), [&](std::byte b) { return b == silenceOf(format); }))
        << "something is heard behind the track";
}

class DifferingFormats : public testing::TestWithParam<std::vector<TrackFormat>> {};

TEST_P(DifferingFormats, AreEachHeardWholeWithAShortGapWhereTheDeviceReopens) {
    const std::vector<TrackFormat>& formats = GetParam();
    for (const int ms : {300, 2500}) {
        TestHost host;
        std::vector<Bytes> tracks;
        for (const TrackFormat& format : formats) {
            host.open(format.rate, format.channels, format.bits);
            tracks.push_back(noise(format, ms, static_cast<std::uint32_t>(tracks.size())));
            host.writeBytes(reinterpret_cast<const char*>(tracks.back().data()),
                            tracks.back().size());
            host.close(true);
        }
        host.advance(4 * ms + 5000);

        const std::vector<Heard> devices = heardByDevice(host.sound);
        ASSERT_EQ(devices.size(), formats.size());
        std::int64_t longest = 0;
        for (std::size_t i = 0; i < formats.size(); ++i) {
            SCOPED_TRACE(std::to_string(ms) + " ms, track " + std::to_string(i));
            expectHeard(devices[i], formats[i], tracks[i]);
            if (i == 0) continue;
            const std::int64_t gap = devices[i].startTick - devices[i - 1].endTick;
            EXPECT_GE(gap, 0) << "the device before plays out first";
            longest = std::max(longest, gap);
        }
        RecordProperty("longestGapMsOfTracksOf" + std::to_string(ms) + "Ms",
                       static_cast<int>(longest / 10'000));
        EXPECT_LE(longest, 500'000); // 50 ms
    }
}

INSTANTIATE_TEST_SUITE_P(InAnyOrder, DifferingFormats,
                         testing::Values(std::vector{voice, disc, studio, surround},
                                         std::vector{surround, studio, disc, voice},
                                         std::vector{disc, voice, surround, disc, studio}));

} // namespace
} // namespace velorine::test
