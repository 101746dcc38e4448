#include "tests/journeys/Programme.h"

#include <gtest/gtest.h>

#include <random>

namespace velorine::test {
namespace {

TEST(Pause, StopsAtOneFrameAndGoesOnAtTheNext) {
    for (const int playedMs : {777, 2500, 9000}) {
        Programme programme;
        programme.open();
        programme.writeMs(playedMs);
        const std::int64_t call = programme.now();
        programme.host.out.Pause(1);
        programme.host.advance(1000);
        for (const HeardFrame& frame : programme.heard())
            ASSERT_TRUE(frame.value == 0 || frame.tick - call <= 300'000) << playedMs; // 30 ms
        programme.host.out.Pause(0);
        programme.writeMs(1500);
        programme.finish();
        const auto list = programme.stretches();
        EXPECT_EQ(orderFault(list), "") << described(list);
        EXPECT_EQ(list.back().end(), programme.segments[0].frames);
    }
}

TEST(Pause, TimeStands) {
    Programme programme;
    programme.open();
    programme.writeMs(3000);
    programme.host.out.Pause(1);
    programme.host.advance(120);
    const int stands = programme.host.out.GetOutputTime();
    for (int i = 0; i < 100; ++i) {
        programme.host.advance(100);
        EXPECT_EQ(programme.host.out.GetOutputTime(), stands);
    }
}

TEST(Pause, HoldsTheHostAtNineTenthsOfASecond) {
    Programme programme;
    programme.open();
    programme.writeMs(1500);
    programme.host.out.Pause(1);
    programme.host.advance(200);
    int permitted = 0;
    std::vector<std::int32_t> piece(2304, 0x40000000);
    for (int i = 0; i < 1000; ++i) {
        if (programme.host.out.CanWrite() == 0) break;
        programme.host.out.Write(reinterpret_cast<char*>(piece.data()), 9216);
        permitted += 9216;
    }
    EXPECT_LT(permitted, 48000 * 8);
    EXPECT_EQ(programme.host.out.CanWrite(), 0);
}

TEST(Pause, AtRandomMomentsLosesAndRepeatsNothing) {
    std::mt19937 random{7};
    for (int run = 0; run < 20; ++run) {
        Programme programme;
        programme.open();
        programme.writeMs(1000);
        for (int i = 0; i < 6; ++i) {
            programme.writeMs(static_cast<int>(random() % 700));
            programme.host.out.Pause(1);
            programme.host.advance(static_cast<int>(random() % 2500));
            programme.host.out.Pause(0);
        }
        programme.writeMs(1000);
        programme.finish();
        const auto list = programme.stretches();
        EXPECT_EQ(orderFault(list), "") << "run " << run << "\n" << described(list);
        EXPECT_EQ(list.back().end(), programme.segments[0].frames) << "run " << run;
    }
}

TEST(Pause, WithTheBeepOnTheBeepIsPutInAndNoFrameIsLost) {
    TestHost::Setup setup;
    setup.beep = true;
    Programme programme{setup};
    programme.open();
    programme.writeMs(2500);
    programme.host.out.Pause(1);
    programme.host.advance(2000);
    programme.host.out.Pause(0);
    programme.writeMs(2000);
    programme.finish();
    const auto list = programme.stretches();
    EXPECT_EQ(orderFault(list), "") << described(list);
    int blended = 0;
    for (const Stretch& stretch : list)
        if (stretch.kind == Stretch::Kind::blend) blended += stretch.frames;
    EXPECT_GT(blended, 2 * 2000) << "a beep at the pause and one at its end\n" << described(list);
    EXPECT_EQ(list.back().end(), programme.segments[0].frames) << described(list);
}

TEST(Pause, OverAnHourTheDeviceIsGivenBackAndPlayingGoesOn) {
    Programme programme;
    programme.open();
    programme.writeMs(2500);
    programme.host.out.Pause(1);
    programme.host.advance(3'600'000);
    EXPECT_EQ(programme.host.sound.closes, 1);
    programme.host.out.Pause(0);
    programme.writeMs(2000);
    programme.finish();
    const auto list = programme.stretches();
    EXPECT_EQ(orderFault(list), "") << described(list);
    EXPECT_EQ(list.back().end(), programme.segments[0].frames) << described(list);
}

TEST(Pause, WhenTheTrackIsClosedInItTheRestIsNeverHeard) {
    Programme programme;
    programme.open();
    programme.writeMs(2500);
    programme.host.out.Pause(1);
    programme.host.advance(500);
    programme.close(false);
    programme.open();
    programme.writeMs(2000);
    programme.finish();
    const auto list = programme.stretches();
    EXPECT_EQ(orderFault(list), "") << described(list);
    EXPECT_EQ(list.back().segment, 1) << described(list);
    EXPECT_EQ(list.back().end(), programme.segments[1].frames) << described(list);
}

} // namespace
} // namespace velorine::test
