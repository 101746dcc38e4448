#include "output/pulse/HeardFrames.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

constexpr FxTime begin = 7 * ticksPerSecond;

/// The sink has taken `taken` frames of 48 kHz, 20 ms of which are still in it.
HeardFrames::Report report(FxTime at, std::int64_t taken, bool flows = true) {
    return {at, taken, 20 * ticksPerMs, 30 * ticksPerMs, flows};
}

HeardFrames begun() {
    HeardFrames heard{48000};
    heard.begin(begin);
    return heard;
}

TEST(HeardFrames, NothingIsHeardBeforeTheFirstReport) {
    HeardFrames heard = begun();
    EXPECT_EQ(heard.at(begin + ticksPerSecond, 1920), 0);
}

TEST(HeardFrames, WhatTheSinkHoldsIsNotHeardYet) {
    HeardFrames heard = begun();
    heard.take(report(begin, 4800));
    EXPECT_EQ(heard.at(begin, 9600), 4800 - 960);
    EXPECT_EQ(heard.at(begin + 10 * ticksPerMs, 9600), 4800 - 480);
}

TEST(HeardFrames, RunOnWithTheClockUpToWhatWasSent) {
    HeardFrames heard = begun();
    heard.take(report(begin, 4800));
    EXPECT_EQ(heard.at(begin + 60 * ticksPerMs, 9600), 4800 + 1920);
    EXPECT_EQ(heard.at(begin + ticksPerSecond, 9600), 9600);
}

TEST(HeardFrames, StandWhereTheSinkFindsNothing) {
    HeardFrames heard = begun();
    heard.take(report(begin, 4800, false));
    EXPECT_EQ(heard.at(begin + ticksPerSecond, 9600), 4800);
}

TEST(HeardFrames, NeverGoBack) {
    HeardFrames heard = begun();
    heard.take(report(begin, 4800));
    EXPECT_EQ(heard.at(begin + 20 * ticksPerMs, 9600), 4800);
    heard.take(report(begin + 21 * ticksPerMs, 4800));
    EXPECT_EQ(heard.at(begin + 22 * ticksPerMs, 9600), 4800);
    EXPECT_EQ(heard.at(begin, 9600), 4800);
}

TEST(HeardFrames, AReportTellsThatTheStreamStoodStill) {
    HeardFrames heard = begun();
    heard.take(report(begin, 4800));
    EXPECT_EQ(heard.at(begin + 30 * ticksPerMs, 9600), 4800 + 480);
    heard.take(report(begin + 30 * ticksPerMs, 4800));
    EXPECT_EQ(heard.reckoned(begin + 30 * ticksPerMs, 9600), 4800 - 960);
    EXPECT_EQ(heard.at(begin + 30 * ticksPerMs, 9600), 4800 + 480);
}

TEST(HeardFrames, AreNoneBeforeTheSinkHasPlayedThatFar) {
    HeardFrames heard = begun();
    heard.take(report(begin, 480));
    EXPECT_EQ(heard.at(begin, 1920), 0);
}

TEST(HeardFrames, WhatTheSinkMayTakeInTimeIsFirm) {
    HeardFrames heard = begun();
    heard.take(report(begin, 4800));
    // Heard to 3840; the sink may hold 30 ms, and 5 ms pass until a change arrives.
    EXPECT_EQ(heard.firmEnd(begin, 9600), 3840 + 1440 + 240);
    EXPECT_EQ(heard.firmEnd(begin, 5000), 5000) << "no more than was sent";
    EXPECT_EQ(heard.firmEnd(begin + ticksPerSecond, 9600), 9600);
}

TEST(HeardFrames, ProgressIsASinkThatTakes) {
    HeardFrames heard = begun();
    EXPECT_EQ(heard.lastProgress().at, begin);
    heard.take(report(begin + 10, 4800));
    EXPECT_EQ(heard.lastProgress().at, begin + 10);
    EXPECT_EQ(heard.lastProgress().frames, 4800 - 960);
    heard.take(report(begin + 20, 4800));
    EXPECT_EQ(heard.lastProgress().at, begin + 10);
    heard.take(report(begin + 30, 4801));
    EXPECT_EQ(heard.lastProgress().at, begin + 30);
}

TEST(HeardFrames, ABeginningForgets) {
    HeardFrames heard = begun();
    heard.take(report(begin, 4800));
    heard.at(begin, 9600);
    heard.begin(begin + 5);
    EXPECT_EQ(heard.at(begin + ticksPerSecond, 9600), 0);
    EXPECT_EQ(heard.lastProgress().at, begin + 5);
}

} // namespace
} // namespace velorine::test
