#include "output/PositionTracker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace velorine::test {
namespace {

constexpr FxTime begin = 36'000'000'000'000;
constexpr int rate48 = 48000;
constexpr int buffer48 = 98560;

FxTime after(double seconds) {
    return begin + static_cast<FxTime>(std::llround(seconds * 1e7));
}

/// A tracker that has played `played` frames with the cursor at `cursor`, started at `begin`.
PositionTracker started(std::int64_t played = 0, int cursor = 0) {
    PositionTracker tracker;
    tracker.place(played, cursor);
    tracker.begin(begin);
    return tracker;
}

// -- Laps --------------------------------------------------------------------------------------

struct LapRow {
    double estimate; ///< frames that the clock says
    int cursorDelta; ///< frames that the cursor went on, modulo the buffer
    std::int64_t delta;
};

class Laps : public testing::TestWithParam<LapRow> {};

TEST_P(Laps, TheLapNearestToTheEstimateIsTaken) {
    const LapRow& row = GetParam();
    PositionTracker tracker = started(1000, 90'000);
    const FxTime now = begin + static_cast<FxTime>(std::llround(row.estimate * 1e7 / rate48));
    tracker.takeCursor((90'000 + row.cursorDelta) % buffer48, now, 1'000'000'000, rate48, buffer48);
    EXPECT_NEAR(static_cast<double>(tracker.played() - 1000), static_cast<double>(row.delta),
                row.estimate > 3 * rate48 ? 144 : 0);
}

INSTANTIATE_TEST_SUITE_P(Table, Laps,
                         testing::Values(LapRow{1000, 98'000, 0}, // behind: counts as standing
                                         LapRow{100, 200, 200}, LapRow{0, 0, 0},
                                         LapRow{98'560, 0, 98'560}, LapRow{98'000, 10, 98'570},
                                         LapRow{49'279, 0, 0}, LapRow{49'281, 0, 98'560},
                                         LapRow{140'000, 50'000, 148'560}));

TEST(PositionTracker, ManyLapsDuringAStallArePlacedByTheEstimate) {
    // Past the first three seconds the estimate is trusted within 3 ms, so stay outside of that.
    PositionTracker tracker = started(0, 0);
    tracker.takeCursor(50'000, after(250'000.0 / rate48), 1'000'000'000, rate48, buffer48);
    EXPECT_EQ(tracker.played(), 247'120);
    PositionTracker other = started(0, 0);
    other.takeCursor(98'550, after(295'690.0 / rate48), 1'000'000'000, rate48, buffer48);
    EXPECT_NEAR(static_cast<double>(other.played()), 295'690 - 20 * 0.06, 1.0);
}

TEST(PositionTracker, TheCursorsPlaceIsKeptModuloTheBuffer) {
    PositionTracker tracker = started(0, 98'000);
    tracker.takeCursor(440, after(1000.0 / rate48), 1'000'000, rate48, buffer48);
    EXPECT_EQ(tracker.played(), 1000);
    tracker.takeCursor(940, after(1500.0 / rate48), 1'000'000, rate48, buffer48);
    EXPECT_EQ(tracker.played(), 1500);
}

// -- Smoothing ---------------------------------------------------------------------------------

TEST(PositionTracker, InTheFirstThreeSecondsTheCursorIsTakenAsItIs) {
    PositionTracker tracker = started();
    tracker.takeCursor(48'050, after(1.0), 1'000'000, rate48, buffer48);
    EXPECT_EQ(tracker.played(), 48'050);
    tracker.takeCursor(96'000, after(2.0), 1'000'000, rate48, buffer48);
    EXPECT_EQ(tracker.played(), 96'000);
}

TEST(PositionTracker, LaterJitterMovesSixPercentOfTheWay) {
    PositionTracker tracker = started(0, 0);
    tracker.takeCursor(96'000, after(2.0), 10'000'000, rate48, buffer48);
    ASSERT_EQ(tracker.played(), 96'000);
    tracker.takeCursor(144'000 - buffer48 + 100, after(3.0), 10'000'000, rate48, buffer48);
    EXPECT_EQ(tracker.played(), 144'006);
}

TEST(PositionTracker, ThreeMsOrMoreAreNoJitter) {
    PositionTracker tracker = started(0, 0);
    tracker.takeCursor(96'000, after(2.0), 10'000'000, rate48, buffer48);
    tracker.takeCursor(144'000 - buffer48 + 144, after(3.0), 10'000'000, rate48, buffer48);
    EXPECT_EQ(tracker.played(), 144'144);
}

TEST(PositionTracker, JitterJustBelowThreeMsIsSmoothed) {
    PositionTracker tracker = started(0, 0);
    tracker.takeCursor(96'000, after(2.0), 10'000'000, rate48, buffer48);
    tracker.takeCursor(144'000 - buffer48 - 143, after(3.0), 10'000'000, rate48, buffer48);
    EXPECT_EQ(tracker.played(), 143'991); // 144000 - 143 * 0.06
}

// -- When the hardware is asked ----------------------------------------------------------------

TEST(PositionTracker, TheHardwareIsAskedOnlyWhenNeeded) {
    PositionTracker tracker = started();
    EXPECT_TRUE(tracker.needsCursor(after(2.9), 1'000'000, rate48)) << "it has just begun";
    tracker.takeCursor(192'000 % buffer48, after(4.0), 1'000'000, rate48, buffer48);
    EXPECT_FALSE(tracker.needsCursor(after(4.3), 1'000'000, rate48));
    EXPECT_FALSE(tracker.needsCursor(after(4.5), 1'000'000, rate48));
    EXPECT_TRUE(tracker.needsCursor(after(4.5001), 1'000'000, rate48)) << "half a second ago";
    EXPECT_TRUE(tracker.needsCursor(after(4.3), 206'400 + 9599, rate48)) << "200 ms are left";
    EXPECT_FALSE(tracker.needsCursor(after(4.3), 206'400 + 9600, rate48));
}

// -- Estimate and floor ------------------------------------------------------------------------

TEST(PositionTracker, TheEstimateRunsOnWithTheClock) {
    const PositionTracker tracker = started(500, 0);
    EXPECT_EQ(tracker.estimate(begin, rate48), 500);
    EXPECT_EQ(tracker.estimate(after(0.25), rate48), 12'500);
    EXPECT_EQ(tracker.estimate(after(1.0), 44100), 44'600);
}

TEST(PositionTracker, NoEstimateFallsBelowTheFloor) {
    PositionTracker tracker = started();
    tracker.takeCursor(24'000, after(0.5), 1'000'000, rate48, buffer48);
    EXPECT_EQ(tracker.floor(), 24'000);
    EXPECT_EQ(tracker.estimate(after(0.4), rate48), 24'000);
}

TEST(PositionTracker, TheFloorStopsAtWhatWasWritten) {
    PositionTracker tracker = started();
    tracker.takeCursor(24'000, after(0.5), 20'000, rate48, buffer48);
    EXPECT_EQ(tracker.floor(), 20'000);
    tracker.takeCursor(26'000, after(0.55), 10'000, rate48, buffer48);
    EXPECT_EQ(tracker.floor(), 20'000);
}

TEST(PositionTracker, WhatIsPublishedNeverGoesBackAndNeverPassesTheWrittenEnd) {
    PositionTracker tracker = started();
    EXPECT_EQ(tracker.publish(after(0.5), 1'000'000, rate48), 24'000);
    EXPECT_EQ(tracker.publish(after(0.4), 1'000'000, rate48), 24'000);
    EXPECT_EQ(tracker.publish(after(2.0), 30'000, rate48), 30'000);
    EXPECT_EQ(tracker.publish(after(2.1), 20'000, rate48), 30'000);
    tracker.raisePublished(29'000);
    EXPECT_EQ(tracker.published(), 30'000);
    tracker.raisePublished(31'000);
    EXPECT_EQ(tracker.published(), 31'000);
}

TEST(PositionTracker, APositionMayPassTheWrittenEndWhereItIsNotPublished) {
    const PositionTracker tracker = started();
    EXPECT_EQ(tracker.estimate(after(1.0), rate48), 48'000);
}

// -- Drift -------------------------------------------------------------------------------------

/// A card whose true rate is `ratio` times the nominal one, read every 50 ms.
double driftAfter(double ratio, double seconds) {
    PositionTracker tracker = started();
    for (double t = 0.05; t <= seconds; t += 0.05)
        tracker.takeCursor(static_cast<int>(std::llround(t * rate48 * ratio)) % buffer48, after(t),
                           1'000'000'000, rate48, buffer48);
    return tracker.drift();
}

TEST(PositionTracker, InTheFirstSecondThereIsNoDrift) {
    for (const double t : {0.1, 0.5, 0.55, 0.9, 1.0})
        EXPECT_EQ(driftAfter(1.03, t + 0.001), 1.0) << t;
    EXPECT_NEAR(driftAfter(1.03, 1.101), 1.03, 1e-3);
}

TEST(PositionTracker, TheTrueRateIsMeasured) {
    EXPECT_NEAR(driftAfter(1.0, 60), 1.0, 1e-5);
    EXPECT_NEAR(driftAfter(1.002, 60), 1.002, 1e-4);
    EXPECT_NEAR(driftAfter(0.99, 60), 0.99, 1e-3);
}

TEST(PositionTracker, TheRatioIsHeldToFourPercent) {
    EXPECT_EQ(driftAfter(1.2, 2.5), 1.04);
    EXPECT_EQ(driftAfter(0.8, 2.5), 0.96);
}

TEST(PositionTracker, AStandingCursorIsNoDrift) {
    PositionTracker tracker = started();
    for (int i = 1; i < 60; ++i) {
        tracker.takeCursor(0, after(0.05 * i), 1'000'000, rate48, buffer48);
        // The estimate goes round with the clock, so whole laps may be counted, but no ratio
        // beyond.
        EXPECT_GE(tracker.drift(), 0.96);
        EXPECT_LE(tracker.drift(), 1.04);
    }
}

TEST(PositionTracker, ARestartForgetsTheDrift) {
    PositionTracker tracker = started();
    for (double t = 0.05; t < 5; t += 0.05)
        tracker.takeCursor(static_cast<int>(t * rate48 * 1.02) % buffer48, after(t), 1'000'000'000,
                           rate48, buffer48);
    EXPECT_NE(tracker.drift(), 1.0);
    tracker.forgetDrift();
    EXPECT_EQ(tracker.drift(), 1.0);
}

// -- Any card, any polling ---------------------------------------------------------------------

TEST(PositionTracker, FollowsAWrappingCursorThroughGapsAndJitter) {
    std::mt19937 random{8};
    const auto between = [&](double low, double high) {
        return low + (high - low) * static_cast<double>(random()) / 4294967296.0;
    };
    for (int round = 0; round < 120; ++round) {
        const int rate = std::array{8000, 22050, 44100, 48000, 96000, 192000}[random() % 6];
        const int buffer = 2 * rate + 2560;
        const double card = rate * between(0.98, 1.02);
        const double jitterMs = between(0.0, 2.5);
        const int jitter = static_cast<int>(rate * jitterMs / 1000); // either way
        PositionTracker tracker = started();
        std::int64_t published = 0;
        double t = 0;
        while (t < 120) {
            t += random() % 10 == 0 && t > 4 ? between(0.05, 5.0) : between(0.04, 0.2);
            const double truth = card * t;
            const auto read =
                static_cast<std::int64_t>(truth) +
                static_cast<std::int64_t>(random() % static_cast<unsigned>(2 * jitter + 1)) -
                jitter;
            const std::int64_t written = static_cast<std::int64_t>(truth) + rate;
            tracker.takeCursor(static_cast<int>(std::max<std::int64_t>(read, 0) % buffer), after(t),
                               written, rate, buffer);
            tracker.publish(after(t), written, rate);
            ASSERT_GE(tracker.drift(), 0.96);
            ASSERT_LE(tracker.drift(), 1.04);
            ASSERT_GE(tracker.published(), published);
            ASSERT_LE(tracker.published(), written);
            published = tracker.published();
            // Jitter shifts what counts as jitter: it adds to the 3 ms that are smoothed.
            ASSERT_NEAR(static_cast<double>(tracker.played()), truth,
                        (jitterMs < 0.5 ? 0.003 : 0.003 + jitterMs / 1000) * rate + 1)
                << "rate " << rate << " at " << t << " s, card " << card / rate << ", jitter "
                << jitterMs << " ms";
        }
        EXPECT_NEAR(tracker.drift(), card / rate, 1e-4);
    }
}

TEST(PositionTracker, BetweenReadingsTheEstimateStaysNear) {
    PositionTracker tracker = started();
    const double card = 48000 * 1.001;
    for (double t = 0.4; t < 300; t += 0.4) {
        const double truth = card * t;
        if (t > 4) {
            ASSERT_NEAR(static_cast<double>(tracker.estimate(after(t), rate48)), truth, 144);
        }
        if (tracker.needsCursor(after(t), static_cast<std::int64_t>(truth) + 48'000, rate48))
            tracker.takeCursor(static_cast<int>(static_cast<std::int64_t>(truth) % buffer48),
                               after(t), static_cast<std::int64_t>(truth) + 48'000, rate48,
                               buffer48);
    }
}

// -- Numbers of the feed -----------------------------------------------------------------------

struct FeedRow {
    int rate;
    int high;
    int low;
    int smallest;
    int preload;
};

class FeedNumbers : public testing::TestWithParam<FeedRow> {};

TEST_P(FeedNumbers, AreScaledFromTheirRates) {
    const FeedRow& row = GetParam();
    EXPECT_EQ(paddingNeeded(0, 0, row.rate), row.low);
    EXPECT_EQ(paddingNeeded(row.high, 0, row.rate), 0);
    EXPECT_EQ(paddingNeeded(row.high - 1, 0, row.rate), row.low - row.high + 1);
    EXPECT_EQ(paddingNeeded(100, row.high - 101, row.rate), row.low - row.high + 1);
    EXPECT_EQ(paddingNeeded(100, row.high - 100, row.rate), 0);
    EXPECT_EQ(paddingNeeded(-50, 0, row.rate), row.low + 50); // already past the end
    EXPECT_EQ(smallestWrittenPadding(row.rate), row.smallest);
    EXPECT_EQ(preloadFrames(row.rate), row.preload);
}

INSTANTIATE_TEST_SUITE_P(Rates, FeedNumbers,
                         testing::Values(FeedRow{4000, 2972, 3265, 92, 683},
                                         FeedRow{8000, 5944, 6531, 185, 1365},
                                         FeedRow{11025, 8192, 9000, 256, 1882},
                                         FeedRow{22050, 16384, 18000, 512, 3763},
                                         FeedRow{32000, 23777, 26122, 743, 5461},
                                         FeedRow{44100, 32768, 36000, 1024, 7526},
                                         FeedRow{48000, 35666, 39184, 1114, 8192},
                                         FeedRow{88200, 65536, 72000, 2048, 15053},
                                         FeedRow{96000, 71332, 78367, 2229, 16384},
                                         FeedRow{192000, 142663, 156735, 4458, 32768}),
                         [](const auto& tested) { return std::to_string(tested.param.rate); });

TEST(FeedNumbers, TheWaitGrowsWithTheQueue) {
    EXPECT_EQ(feedWaitMs(0, 48000), 50);
    EXPECT_EQ(feedWaitMs(-5000, 48000), 50);
    EXPECT_EQ(feedWaitMs(3840, 48000), 50);
    EXPECT_EQ(feedWaitMs(3888, 48000), 51);
    EXPECT_EQ(feedWaitMs(9600, 48000), 170);
    EXPECT_EQ(feedWaitMs(48'000, 48000), 970);
    EXPECT_EQ(feedWaitMs(480'000, 48000), 970);
    EXPECT_EQ(feedWaitMs(100, 0), 50);
}

} // namespace
} // namespace velorine::test
