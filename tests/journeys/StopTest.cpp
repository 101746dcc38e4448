#include "tests/journeys/Programme.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

TEST(Stop, WithAFadePlaysOneSecondOfFadedAudioThenSilence) {
    Programme programme;
    programme.open();
    programme.writeMs(5000);
    const std::int64_t call = programme.now();
    programme.close(false);
    EXPECT_LE(programme.now() - call, 100'000) << "Close returns at once"; // 10 ms
    programme.host.advance(6000);
    const auto list = programme.stretches();
    ASSERT_EQ(list.size(), 2u) << described(list);
    EXPECT_EQ(list[0].segment, 0);
    EXPECT_EQ(list[1].kind, Stretch::Kind::blend);
    EXPECT_EQ(list[1].frames, 48000) << described(list);
    const std::int64_t change = firstChange(programme.heard(), call);
    EXPECT_LE(change - call, 1'600'000); // 160 ms
}

TEST(Stop, WithoutAFadeEndsAtTheFrameThatPlays) {
    TestHost::Setup setup;
    setup.fadeOnStop = false;
    Programme programme{setup};
    programme.open();
    programme.writeMs(5000);
    const std::int64_t call = programme.now();
    programme.close(false);
    programme.host.advance(3000);
    const auto list = programme.stretches();
    ASSERT_EQ(list.size(), 1u) << described(list);
    EXPECT_LE(firstChange(programme.heard(), call) - call, 300'000);
}

TEST(Stop, TheNextTrackComesInWithFortyMsOfFade) {
    for (const int gapMs : {0, 300, 2000, 9000}) {
        Programme programme;
        programme.open();
        programme.writeMs(5000);
        programme.close(false);
        programme.host.advance(gapMs);
        programme.open();
        programme.writeMs(2000);
        programme.finish();
        const auto list = programme.stretches();
        EXPECT_EQ(orderFault(list), "") << described(list);
        EXPECT_EQ(list.back().segment, 1) << described(list);
        EXPECT_EQ(list.back().first, 1920) << "gap " << gapMs << "\n" << described(list);
        EXPECT_EQ(list.back().end(), programme.segments[1].frames) << described(list);
    }
}

TEST(Stop, TimeOfTheNextTrackBeginsAtZero) {
    Programme programme;
    programme.open();
    programme.writeMs(3000);
    programme.close(false);
    programme.host.advance(500);
    programme.open();
    EXPECT_EQ(programme.host.out.GetOutputTime(), 0);
    programme.writeMs(1000);
    EXPECT_EQ(programme.host.out.GetWrittenTime(), 1000);
    EXPECT_LE(programme.host.out.GetOutputTime(), 1000);
}

TEST(Stop, FadesOutEvenlyWithoutAClick) {
    Programme programme;
    programme.open();
    programme.writeMs(5000);
    programme.close(false);
    programme.host.advance(4000);
    const auto frames = programme.heard();
    std::int64_t steepest = 0;
    for (std::size_t i = 1; i < frames.size(); ++i)
        steepest =
            std::max(steepest, std::abs(std::int64_t{frames[i].value} - frames[i - 1].value));
    // Down from 2^30 in 48,000 equal steps.
    EXPECT_LE(steepest, (std::int64_t{1} << 31) / 48000 + 16);
}

TEST(Stop, BeforeAnythingWasWrittenNothingIsHeard) {
    Programme programme;
    programme.open();
    programme.host.out.Flush(0);
    programme.host.out.Close();
    programme.host.advance(9000);
    EXPECT_TRUE(programme.stretches().empty());
}

TEST(Quit, ReturnsWithinSixSecondsInEveryState) {
    const auto quitMs = [](Programme& programme) {
        const std::int64_t call = programme.now();
        programme.host.out.Quit();
        return (programme.now() - call) / 10'000;
    };
    {
        Programme idle;
        EXPECT_LE(quitMs(idle), 6000);
    }
    {
        Programme opened;
        opened.open();
        EXPECT_LE(quitMs(opened), 6000);
    }
    {
        Programme playing;
        playing.open();
        playing.writeMs(4000);
        EXPECT_LE(quitMs(playing), 6000);
    }
    {
        Programme paused;
        paused.open();
        paused.writeMs(4000);
        paused.host.out.Pause(1);
        EXPECT_LE(quitMs(paused), 6000);
    }
    {
        Programme stopped;
        stopped.open();
        stopped.writeMs(4000);
        stopped.close(false);
        EXPECT_LE(quitMs(stopped), 6000);
    }
    {
        Programme sought;
        sought.open();
        sought.writeMs(4000);
        sought.seek(1000);
        EXPECT_LE(quitMs(sought), 6000);
    }
}

} // namespace
} // namespace velorine::test
