#include "chain/driver/BufferTarget.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace velorine::test {
namespace {

constexpr FxTime started =
    36'000'000'000'000; ///< far from 0, as on a machine that has run for days

FxTime ticks(double seconds) {
    return static_cast<FxTime>(std::llround(seconds * 1e7));
}

class BufferTargetTest : public testing::Test {
protected:
    int after(double seconds) const { return target.milliseconds(started + ticks(seconds)); }

    BufferTarget target;
};

using BufferDepth = BufferTargetTest;

TEST_F(BufferDepth, BeforeTheFirstStartItIsTheLeast) {
    EXPECT_EQ(after(0), 200);
    EXPECT_EQ(after(100'000), 200);
    EXPECT_EQ(target.frames(started, 48000), 9600);
}

TEST_F(BufferDepth, GrowsFromTheStartOfTheDevice) {
    struct Row {
        double seconds;
        int ms;
        std::int64_t frames48;
        std::int64_t frames44;
    };
    constexpr Row rows[] = {
        {0.0, 200, 9600, 8820},        {0.25, 200, 9600, 8820},      {0.5, 200, 9600, 8820},
        {0.501, 201, 9648, 8865},      {1.0, 375, 18000, 16538},     {1.5, 550, 26400, 24255},
        {2.0, 725, 34800, 31973},      {2.5, 900, 43200, 39690},     {3.0, 1075, 51600, 47408},
        {5.0, 1775, 85200, 78278},     {10.0, 3525, 169200, 155453}, {20.0, 7025, 337200, 309803},
        {28.4, 9965, 478320, 439457},  {28.5, 9999, 479952, 440956}, {28.6, 9999, 479952, 440956},
        {3600.0, 9999, 479952, 440956}};
    target.deviceStarts(started);
    for (const Row& row : rows) {
        EXPECT_EQ(after(row.seconds), row.ms) << row.seconds << " s";
        EXPECT_EQ(target.frames(started + ticks(row.seconds), 48000), row.frames48);
        EXPECT_EQ(target.frames(started + ticks(row.seconds), 44100), row.frames44);
    }
}

TEST_F(BufferDepth, AMomentBeforeTheStartIsTheLeast) {
    target.deviceStarts(started);
    EXPECT_EQ(after(-5), 200);
}

TEST_F(BufferDepth, ARestartBeginsAnewOnlyWhereNothingHasGrown) {
    target.deviceStarts(started);
    target.deviceStarts(started + ticks(0.4));
    EXPECT_EQ(after(0.9), 200); // held for another half second
    target.deviceStarts(started + ticks(2.0));
    EXPECT_EQ(after(2.0), 585); // 0.2 + (2.0 - 0.9) * 0.35
}

TEST_F(BufferDepth, FallsToWhatIsThere) {
    struct Row {
        std::int64_t bufferedMs;
        int ms;
    };
    for (const Row row :
         {Row{500, 600}, Row{1000, 1100}, Row{2000, 2100}, Row{100, 200}, Row{0, 200}}) {
        BufferTarget grown;
        grown.deviceStarts(started);
        const FxTime now = started + ticks(14.3); // 5.03 s deep
        ASSERT_EQ(grown.milliseconds(now), 5030);
        grown.noteBuffered(now, row.bufferedMs);
        EXPECT_EQ(grown.milliseconds(now), row.ms) << row.bufferedMs;
    }
}

TEST_F(BufferDepth, GrowsOnFromWhereItFellTo) {
    target.deviceStarts(started);
    target.noteBuffered(started + ticks(14.3), 1000);
    EXPECT_EQ(after(15.3), 1450);
}

TEST_F(BufferDepth, HoldsForHalfASecondWhereItFellToTheLeast) {
    target.deviceStarts(started);
    target.noteBuffered(started + ticks(10), 50);
    EXPECT_EQ(after(10.5), 200);
    EXPECT_EQ(after(11.5), 550);
}

TEST_F(BufferDepth, StandsAHundredMsAboveWhatIsThereAtMost) {
    target.deviceStarts(started);
    target.noteBuffered(started + ticks(3), 975); // 1075 is just allowed
    EXPECT_EQ(after(3), 1075);
    target.noteBuffered(started + ticks(3), 974);
    EXPECT_EQ(after(3), 1074);
}

TEST_F(BufferDepth, WithoutAdaptionItIsTenSeconds) {
    target.adaptive.store(false);
    EXPECT_EQ(after(0), 10'000);
    EXPECT_EQ(target.frames(started, 44100), 441'000);
}

TEST_F(BufferDepth, StaysInItsBoundsWhateverHappens) {
    std::mt19937 random{5};
    for (int round = 0; round < 200; ++round) {
        BufferTarget any;
        FxTime now = started;
        int before = any.milliseconds(now);
        for (int step = 0; step < 200; ++step) {
            now += static_cast<FxTime>(random() % 5'000'000);
            const int depth = any.milliseconds(now);
            ASSERT_GE(depth, before) << "it only falls when it is told";
            ASSERT_GE(depth, 200);
            ASSERT_LE(depth, 9999);
            switch (random() % 4) {
            case 0: {
                const auto buffered = static_cast<std::int64_t>(random() % 12'000);
                any.noteBuffered(now, buffered);
                ASSERT_LE(any.milliseconds(now), std::max<std::int64_t>(200, buffered + 100));
                ASSERT_LE(any.milliseconds(now), depth);
                break;
            }
            case 1:
                any.deviceStarts(now);
                break;
            default:
                break;
            }
            before = any.milliseconds(now);
            ASSERT_GE(before, 200);
        }
    }
}

} // namespace
} // namespace velorine::test
