#include "tests/host/FeedRig.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

/// A recording of a track of a second, `playedMs` into it.
struct RecordingRig : FeedRig {
    explicit RecordingRig(bool compare, int mode = 1) {
        engine.compareHalves = compare;
        engine.output.outputMode = mode;
        open(48000, 2, 16);
        stream.trackLength.store(ticksPerSecond);
    }

    double scaleAt(int playedMs) {
        const FxTime played = engine.output.played();
        stream.update([&](HostTimes& times) { times.trackStart = played - playedMs * ticksPerMs; });
        writeFrames(100);
        return engine.kestrix.parameters.magnitudeScale;
    }
};

TEST(HalfTrackComparison, TakesTheEffectAwayInTheSecondHalf) {
    RecordingRig rig{true};
    EXPECT_EQ(rig.scaleAt(0), 1.0);
    EXPECT_EQ(rig.scaleAt(499), 1.0);
    rig.engine.kestrix.rebuildPending = false;
    EXPECT_EQ(rig.scaleAt(500), 0.0);
    EXPECT_TRUE(rig.engine.kestrix.rebuildPending);
    EXPECT_EQ(rig.scaleAt(10), 1.0); // the next track
}

TEST(HalfTrackComparison, ATrackOfNoKnownLengthKeepsTheEffect) {
    RecordingRig rig{true};
    rig.stream.trackLength.store(-1); // nobody answers
    EXPECT_EQ(rig.scaleAt(900), 1.0);
}

TEST(HalfTrackComparison, OffItChangesNothing) {
    RecordingRig rig{false};
    rig.engine.kestrix.rebuildPending = false;
    EXPECT_EQ(rig.scaleAt(900), 1.0);
    EXPECT_FALSE(rig.engine.kestrix.rebuildPending);
    rig.engine.kestrix.parameters.magnitudeScale = 0.0; // as a comparison that was on left it
    EXPECT_EQ(rig.scaleAt(900), 1.0);
}

TEST(HalfTrackComparison, PlaybackIsNeverCompared) {
    RecordingRig rig{true, 0};
    EXPECT_EQ(rig.scaleAt(900), 1.0);
}

} // namespace
} // namespace velorine::test
