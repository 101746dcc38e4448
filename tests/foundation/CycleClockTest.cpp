#include "foundation/CycleClock.h"

#include "foundation/SystemClock.h"
#include "tests/support/TestClock.h"

#include <gtest/gtest.h>

namespace velorine::test {

namespace {

/// A processor whose counter runs at `cyclesPerTick`, read once a millisecond.
struct Processor {
    TestClock* clock = nullptr;
    double cyclesPerTick = 300.0;
    double cycles = 0.0;
    int reads = 0;
};

Processor processor;

std::uint64_t readProcessor() {
    ++processor.reads;
    if (processor.clock) {
        processor.clock->advance(1);
        processor.cycles += processor.cyclesPerTick * static_cast<double>(ticksPerMs);
    }
    return static_cast<std::uint64_t>(processor.cycles);
}

class CycleCalibration : public testing::Test {
protected:
    CycleCalibration() { processor = {&kernelClock, 300.0, 0.0, 0}; }

    void sampleAt(double cyclesPerTick, int times) {
        processor.cyclesPerTick = cyclesPerTick;
        for (int i = 0; i < times; ++i)
            cycleClock.calibrate(clock);
    }

    TestClock kernelClock;
    SystemClock clock;
    CycleClock cycleClock{readProcessor};
};

TEST_F(CycleCalibration, TellsTheRateAfterFiveSamples) {
    sampleAt(300.0, 4);
    EXPECT_EQ(cycleClock.cyclesPerTick(), 0.0);
    sampleAt(300.0, 1);
    EXPECT_NEAR(cycleClock.cyclesPerTick(), 300.0, 1e-6);
}

TEST_F(CycleCalibration, IsTheMeanOfSamplesThatAgree) {
    for (const double rate : {300.0, 306.0, 297.0, 309.0, 303.0})
        sampleAt(rate, 1);
    EXPECT_NEAR(cycleClock.cyclesPerTick(), 303.0, 1e-6);
}

TEST_F(CycleCalibration, SampleFarFromTheMeanStartsOver) {
    for (const double outlier : {284.9, 315.1}) {
        CycleClock fresh{readProcessor};
        const auto sample = [&](double rate) {
            processor.cyclesPerTick = rate;
            fresh.calibrate(clock);
        };
        for (int i = 0; i < 4; ++i)
            sample(300.0);
        sample(outlier);
        for (int i = 0; i < 4; ++i)
            sample(200.0);
        EXPECT_EQ(fresh.cyclesPerTick(), 0.0) << outlier;
        sample(200.0);
        EXPECT_NEAR(fresh.cyclesPerTick(), 200.0, 1e-6) << outlier;
    }
}

TEST_F(CycleCalibration, SamplesWithinFivePercentAgree) {
    sampleAt(300.0, 4);
    sampleAt(314.9, 1);
    EXPECT_GT(cycleClock.cyclesPerTick(), 300.0);
}

TEST_F(CycleCalibration, OnceCalibratedTheCounterIsLeftAlone) {
    sampleAt(300.0, 5);
    processor.reads = 0;
    sampleAt(100.0, 3);
    EXPECT_EQ(processor.reads, 0);
    EXPECT_NEAR(cycleClock.cyclesPerTick(), 300.0, 1e-6);
}

TEST_F(CycleCalibration, TimeThatStandsStillYieldsNoSample) {
    processor.clock = nullptr;
    sampleAt(300.0, 5);
    EXPECT_EQ(processor.reads, 5 * 33); // at its start, and after each of 32 tries
    EXPECT_EQ(cycleClock.cyclesPerTick(), 0.0);
}

} // namespace

} // namespace velorine::test
