#include "chain/driver/OutputPacing.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

struct PacingRow {
    int rate;
    int guard;
    int chunk;
    int buffer;
    int limit;
};

class OutputPacing : public testing::TestWithParam<PacingRow> {};

TEST_P(OutputPacing, LeavesAGuardAndWritesInChunks) {
    const PacingRow& row = GetParam();
    EXPECT_EQ(guardFrames(row.rate), row.guard);
    EXPECT_EQ(chunkFrames(row.rate), row.chunk);
    EXPECT_EQ(2 * row.rate + 2560 - guardFrames(row.rate), row.limit);
    EXPECT_EQ(row.buffer - row.guard, row.limit);
}

INSTANTIATE_TEST_SUITE_P(Rates, OutputPacing,
                         testing::Values(PacingRow{4000, 2560, 278, 10560, 8000},
                                         PacingRow{8000, 4458, 557, 18560, 14102},
                                         PacingRow{11025, 6144, 768, 24610, 18466},
                                         PacingRow{22050, 12288, 1536, 46660, 34372},
                                         PacingRow{32000, 17832, 2229, 66560, 48728},
                                         PacingRow{44100, 24576, 3072, 90760, 66184},
                                         PacingRow{48000, 26749, 3343, 98560, 71811},
                                         PacingRow{88200, 49152, 6144, 178960, 129808},
                                         PacingRow{96000, 53498, 6687, 194560, 141062},
                                         PacingRow{192000, 106997, 13374, 386560, 279563}),
                         [](const auto& tested) { return std::to_string(tested.param.rate); });

TEST(OutputPacing, TheGuardNeverFallsBelowItsLeast) {
    EXPECT_EQ(guardFrames(1), 2560);
    EXPECT_EQ(guardFrames(4593), 2560); // 2559.6
    EXPECT_EQ(guardFrames(4595), 2560);
    EXPECT_EQ(guardFrames(4596), 2561);
}

TEST(OutputPacing, HighRatesDoNotOverflow) {
    EXPECT_EQ(guardFrames(1'536'000), 855'980);
    EXPECT_EQ(chunkFrames(1'536'000), 106'997);
}

TEST(OutputPacing, WaitsForAboutTheTimeOfTheFrames) {
    EXPECT_EQ(pacingWaitMs(0, 48000), 1); // below 2: not worth a wait
    EXPECT_EQ(pacingWaitMs(1, 48000), 2);
    EXPECT_EQ(pacingWaitMs(48, 48000), 2);
    EXPECT_EQ(pacingWaitMs(49, 48000), 3);
    EXPECT_EQ(pacingWaitMs(1000, 48000), 22);
    EXPECT_EQ(pacingWaitMs(2304, 48000), 49);
    EXPECT_EQ(pacingWaitMs(2400, 48000), 50);
    EXPECT_EQ(pacingWaitMs(3343, 48000), 50);
    EXPECT_EQ(pacingWaitMs(279'563, 192000), 50);
}

} // namespace
} // namespace velorine::test
