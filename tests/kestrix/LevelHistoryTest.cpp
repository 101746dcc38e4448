#include "kestrix/LevelHistory.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

BandLevelRecord recordAt(FxTime time, double level) {
    BandLevelRecord record{};
    for (double& band : record.level)
        band = level;
    record.level[0] = 10.0 * level;
    record.time = time;
    record.position = time / 10;
    return record;
}

double levelAt(const LevelHistory& history, FxTime time, int band = 1) {
    double levels[kestrixBands];
    history.levelsAt(time, levels);
    return levels[band];
}

TEST(LevelHistory, FewerThanTwoRecordsReadAsSilence) {
    LevelHistory history;
    EXPECT_EQ(levelAt(history, 0), 0.0);
    history.append(recordAt(100, 0.5));
    EXPECT_EQ(levelAt(history, 100), 0.0);
}

TEST(LevelHistory, InterpolatesByTime) {
    LevelHistory history;
    history.append(recordAt(100, 0.5));
    history.append(recordAt(200, 0.7));
    EXPECT_EQ(levelAt(history, 20), 0.5);
    EXPECT_EQ(levelAt(history, 100), 0.5);
    EXPECT_NEAR(levelAt(history, 125), 0.55, 1e-12);
    EXPECT_NEAR(levelAt(history, 125, 0), 5.5, 1e-12);
    EXPECT_EQ(levelAt(history, 200), 0.7);
    EXPECT_EQ(levelAt(history, 201), 0.0);
}

TEST(LevelHistory, ARewindDropsWhatIsStale) {
    LevelHistory history;
    for (int i = 1; i <= 5; ++i)
        history.append(recordAt(100 * i, i));
    history.append(recordAt(300, 9.0));
    EXPECT_EQ(history.count(), 3);
    EXPECT_EQ(levelAt(history, 200), 2.0);
    EXPECT_EQ(levelAt(history, 300), 9.0);
    EXPECT_EQ(levelAt(history, 301), 0.0);
}

TEST(LevelHistory, PruningKeepsAtLeastTwoRecords) {
    LevelHistory history;
    for (int i = 1; i <= 6; ++i)
        history.append(recordAt(100 * i, i));
    history.prune(31); // records stand at 10, 20, ... 60
    EXPECT_EQ(history.count(), 5);
    history.prune(1'000'000);
    EXPECT_EQ(history.count(), 2);
    EXPECT_EQ(levelAt(history, 550), 5.5);
}

} // namespace
} // namespace velorine::test
