#include "tests/journeys/Programme.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace velorine::test {
namespace {

constexpr int fadeInFrames = 7680; // 160 ms

/// The journey from a playing track to one that is heard again after a seek.
void playSeekPlay(Programme& programme, int ms) {
    programme.open();
    programme.writeMs(2500);
    programme.seek(ms);
    programme.writeMs(2500);
    programme.finish();
}

TEST(Seek, NewAudioComesFrameByFrameBehindItsFadeIn) {
    for (const int ms : {0, 1000, 10'000, 1'000'000}) {
        Programme programme;
        playSeekPlay(programme, ms);
        const auto list = programme.stretches();
        ASSERT_EQ(list.size(), 3u) << described(list);
        EXPECT_EQ(list[0].segment, 0);
        EXPECT_EQ(list[1].kind, Stretch::Kind::blend);
        EXPECT_EQ(list[2].segment, 1);
        EXPECT_EQ(list[2].first, fadeInFrames);
        EXPECT_EQ(list[2].end(), programme.segments[1].frames);
    }
}

TEST(Seek, WithoutAFadeTheOldAudioEndsAtTheFrameThatPlays) {
    TestHost::Setup setup;
    setup.fadeOnSeek = false;
    Programme programme{setup};
    programme.open();
    programme.writeMs(2500);
    const std::int64_t call = programme.now();
    programme.seek(10'000);
    programme.host.advance(100);
    const auto list = programme.stretches();
    ASSERT_GE(list.size(), 1u);
    const std::int64_t change = firstChange(programme.heard(), call);
    EXPECT_LE(change - call, 300'000) << described(list); // 30 ms
    EXPECT_EQ(list.size(), 1u) << described(list);
}

TEST(Seek, TimeIsTheTargetBeforeAnyData) {
    for (const int ms : {0, 500, 12'345, 2'000'000}) {
        Programme programme;
        programme.open();
        programme.writeMs(2500);
        const int written = programme.host.out.GetWrittenTime();
        programme.seek(ms);
        EXPECT_EQ(programme.host.out.GetOutputTime(), ms);
        EXPECT_EQ(programme.host.out.GetWrittenTime(), written);
        programme.host.advance(300);
        EXPECT_EQ(programme.host.out.GetOutputTime(), ms);
        programme.writeMs(1000);
        EXPECT_GE(programme.host.out.GetOutputTime(), ms);
        EXPECT_EQ(programme.host.out.GetWrittenTime(), ms + 1000);
    }
}

TEST(Seek, FadedSeekIsHeardWithinItsMarginAndThirtyMs) {
    for (const int playedMs : {300, 1000, 2500, 5000, 20'000}) {
        Programme programme;
        programme.open();
        programme.writeMs(playedMs);
        const std::int64_t call = programme.now();
        programme.seek(60'000);
        programme.host.advance(1000);
        const std::int64_t change = firstChange(programme.heard(), call);
        ASSERT_GT(change, call);
        EXPECT_LE(change - call, 1'100'000) << "after " << playedMs << " ms";
    }
}

TEST(Seek, OldAudioFadesOnWhileTheDeviceGoesOnPlaying) {
    Programme programme;
    programme.open();
    programme.writeMs(3000);
    programme.seek(10'000);
    programme.writeMs(1500);
    EXPECT_EQ(programme.host.sound.passages().size(), 1u) << "the device never stopped";
}

TEST(Seek, TwiceWithinOneRunningFade) {
    Programme programme;
    programme.open();
    programme.writeMs(3000);
    programme.seek(10'000);
    programme.writeMs(100);
    programme.host.advance(60);
    programme.seek(20'000);
    programme.writeMs(3000);
    programme.finish();
    const auto list = programme.stretches();
    EXPECT_EQ(orderFault(list), "") << described(list);
    EXPECT_EQ(list.back().segment, 2) << described(list);
    EXPECT_EQ(list.back().first, fadeInFrames) << described(list);
    EXPECT_EQ(list.back().end(), programme.segments[2].frames);
}

TEST(Seek, TenTimesInASecond) {
    Programme programme;
    programme.open();
    programme.writeMs(3000);
    for (int i = 0; i < 10; ++i) {
        programme.seek(1000 * i);
        programme.writeMs(60);
        programme.host.advance(40);
    }
    programme.writeMs(3000);
    programme.finish();
    const auto list = programme.stretches();
    EXPECT_EQ(orderFault(list), "") << described(list);
    EXPECT_EQ(list.back().segment, 10) << described(list);
    EXPECT_EQ(list.back().first, fadeInFrames) << described(list);
    EXPECT_EQ(list.back().end(), programme.segments[10].frames);
}

TEST(Seek, WhilePausedNothingIsHeardUntilThePauseEnds) {
    Programme programme;
    programme.open();
    programme.writeMs(3000);
    programme.host.out.Pause(1);
    programme.host.advance(500);
    const std::size_t before = programme.heard().size();
    programme.seek(30'000);
    programme.writeFrames(3000); // no more is permitted now
    programme.host.advance(2000);
    const auto frames = programme.heard();
    EXPECT_TRUE(std::all_of(frames.begin() + static_cast<std::ptrdiff_t>(before), frames.end(),
                            [](const HeardFrame& frame) { return frame.value == 0; }));
    EXPECT_EQ(programme.host.out.GetOutputTime(), 30'000);
    programme.host.out.Pause(0);
    programme.writeMs(2000);
    programme.finish();
    const auto list = programme.stretches();
    EXPECT_EQ(orderFault(list), "") << described(list);
    EXPECT_EQ(list.back().segment, 1) << described(list);
    EXPECT_EQ(list.back().end(), programme.segments[1].frames) << described(list);
}

TEST(Seek, BeyondWhatFollowsTheStreamJustEnds) {
    Programme programme;
    programme.open();
    programme.writeMs(2000);
    programme.seek(3'600'000);
    programme.close(false);
    programme.host.advance(8000);
    programme.host.out.Quit();
    EXPECT_EQ(orderFault(programme.stretches()), "");
}

} // namespace
} // namespace velorine::test
