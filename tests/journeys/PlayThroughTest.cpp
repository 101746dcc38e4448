#include "tests/journeys/Programme.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

TEST(PlayThrough, EveryFrameIsHeardOnceAndInOrder) {
    Programme programme;
    programme.open();
    programme.writeMs(8000);
    programme.finish();

    const auto list = programme.stretches();
    ASSERT_EQ(list.size(), 1u) << described(list);
    EXPECT_EQ(list[0].first, 0);
    EXPECT_EQ(list[0].frames, programme.segments[0].frames);
}

TEST(PlayThrough, OneSecondOfTheClockIsOneSecondOfTheTrack) {
    Programme programme;
    programme.open();
    programme.writeMs(3000);
    const int before = programme.host.out.GetOutputTime();
    programme.host.advance(500);
    EXPECT_NEAR(programme.host.out.GetOutputTime() - before, 500, 8);
}

TEST(PlayThrough, ThreeTracksOfOneFormatFollowWithoutAGap) {
    Programme programme;
    for (int track = 0; track < 3; ++track) {
        programme.open();
        programme.writeMs(2500);
        programme.close(true);
    }
    programme.host.advance(3000);

    const auto list = programme.stretches();
    ASSERT_EQ(list.size(), 3u) << described(list);
    for (int track = 0; track < 3; ++track) {
        EXPECT_EQ(list[static_cast<std::size_t>(track)].segment, track);
        EXPECT_EQ(list[static_cast<std::size_t>(track)].frames,
                  programme.segments[static_cast<std::size_t>(track)].frames);
    }
    EXPECT_EQ(programme.host.sound.opens, 1);
}

TEST(PlayThrough, TimeRestartsOnlyOnceTheTrackBeforeHasBeenHeard) {
    Programme programme;
    programme.open();
    programme.writeMs(3000);
    programme.close(true);
    programme.open();
    programme.writeMs(60);
    for (int i = 0; i < 200; ++i) {
        const auto heard = programme.heard();
        if (!heard.empty() && heard.back().value >= programme.segments[1].base) break;
        EXPECT_EQ(programme.host.out.GetOutputTime(), 0);
        programme.host.advance(10);
    }
    programme.writeMs(1000);
    EXPECT_GT(programme.host.out.GetOutputTime(), 0);
}

TEST(PlayThrough, AStallOfTheHostLosesNoFrame) {
    for (const int stallMs : {200, 700, 1500, 1700, 3000, 5000, 10'000}) {
        Programme programme;
        programme.open();
        programme.writeMs(2500);
        programme.host.advance(stallMs);
        programme.writeMs(2500);
        programme.finish();

        const auto list = programme.stretches();
        EXPECT_EQ(orderFault(list), "") << "stall " << stallMs << "\n" << described(list);
        EXPECT_EQ(list.back().end(), programme.segments[0].frames) << "stall " << stallMs;
    }
}

TEST(PlayThrough, NoStaleAudioIsHeardInAStall) {
    Programme programme;
    programme.open();
    programme.writeMs(3000);
    programme.host.advance(4000);
    const auto list = programme.stretches(); // without the silence at the end
    ASSERT_EQ(list.size(), 1u) << described(list);
    EXPECT_EQ(list[0].frames, programme.segments[0].frames);
}

TEST(PlayThrough, VolumeAndPanReachTheDeviceAndNotTheSamples) {
    Programme programme;
    programme.open();
    programme.host.out.SetVolume(128);
    programme.host.out.SetPan(64);
    programme.writeMs(1500);
    EXPECT_EQ(programme.host.sound.volume, -599);
    EXPECT_EQ(programme.host.sound.pan, 602);
    programme.host.out.SetVolume(0);
    EXPECT_EQ(programme.host.sound.volume, -10000);
    programme.host.out.SetVolume(255);
    programme.writeMs(1000);
    programme.finish();
    EXPECT_EQ(programme.stretches().size(), 1u);
}

} // namespace
} // namespace velorine::test
