#include "tests/host/FeedRig.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

using Samples = std::vector<std::int16_t>;

class SilenceScan : public testing::Test, protected FeedRig {
protected:
    /// Opens a mono track at the low rate of 100 Hz: two seconds are 200 frames.
    SilenceScan() { transport.open(100, 1, 16); }

    void write(const Samples& samples) { FeedRig::write(samples); }

    /// Samples of all blocks that were appended.
    Samples appended() const {
        Samples all;
        for (int i = 0; i < hostRing().count(); ++i) {
            const auto block = samplesOf<std::int16_t>(hostRing().at(i));
            all.insert(all.end(), block.begin(), block.end());
        }
        return all;
    }
};

TEST_F(SilenceScan, AnOpenAsksForIt) {
    EXPECT_TRUE(stream.skipSilence.load());
    EXPECT_EQ(stream.silenceFrames.load(), 0);
}

TEST_F(SilenceScan, AWriteOfSilenceMovesTheWrittenEndAndAddsNoFrames) {
    write(Samples(50));
    EXPECT_EQ(stream.times().writtenEnd, 5'000'000);
    ASSERT_EQ(hostRing().count(), 1);
    EXPECT_TRUE(hostRing().at(0).empty());
    EXPECT_EQ(hostRing().at(0).timeStart, 0);
    EXPECT_EQ(hostRing().at(0).timeEnd, 5'000'000);
    EXPECT_TRUE(stream.skipSilence.load());
    EXPECT_EQ(stream.silenceFrames.load(), 50);
    EXPECT_EQ(engine.writtenEnd(), 5'000'000) << "the engine's end goes with it";
}

TEST_F(SilenceScan, TheFirstSoundIsKept) {
    write({0, 0, 100, 328, 5, 0});
    EXPECT_EQ(appended(), (Samples{328, 5, 0}));
    EXPECT_FALSE(stream.skipSilence.load());
    EXPECT_EQ(stream.silenceFrames.load(), 3);
    EXPECT_EQ(hostRing().at(0).timeStart, 0) << "the silence is time without frames";
    EXPECT_EQ(hostRing().at(0).timeEnd, 600'000);
}

TEST_F(SilenceScan, TheThresholdIsOneHundredth) {
    write({327, -327, 327}); // 0.00998
    EXPECT_EQ(appended(), Samples{});
    write({-328}); // 0.01001
    EXPECT_EQ(appended(), Samples{-328});
}

TEST_F(SilenceScan, SilenceBehindTheFirstSoundStays) {
    write({9000, 0, 0});
    write(Samples(20));
    EXPECT_EQ(appended().size(), 23u);
}

TEST_F(SilenceScan, GoesOnAcrossWrites) {
    for (int i = 0; i < 3; ++i)
        write(Samples(30));
    write({0, 0, 9000, 1});
    EXPECT_EQ(appended(), (Samples{9000, 1}));
    EXPECT_EQ(stream.silenceFrames.load(), 92);
    EXPECT_EQ(stream.times().writtenEnd, 9'400'000);
}

TEST_F(SilenceScan, EndsAfterTwoSecondsThoughTheSilenceGoesOn) {
    write(Samples(150));
    write(Samples(100));
    EXPECT_EQ(appended().size(), 50u) << "the limit lies inside of this write";
    EXPECT_FALSE(stream.skipSilence.load());
    EXPECT_EQ(stream.silenceFrames.load(), 200);
    write(Samples(100));
    EXPECT_EQ(appended().size(), 150u);
}

TEST_F(SilenceScan, AWriteThatEndsAtTheLimitIsDroppedAndTheNextIsNot) {
    write(Samples(200));
    EXPECT_EQ(appended().size(), 0u);
    write(Samples(10));
    EXPECT_EQ(appended().size(), 10u);
    EXPECT_FALSE(stream.skipSilence.load());
}

TEST_F(SilenceScan, TwoSecondsAtTheUsualRates) {
    for (const auto& [rate, limit] : {std::pair{44100, 88200}, {48000, 96000}}) {
        FeedRig rig;
        rig.transport.open(rate, 1, 16);
        rig.write(Samples(100'000));
        EXPECT_EQ(rig.stream.silenceFrames.load(), limit);
        EXPECT_EQ(rig.hostRing().end(), 100'000 - limit);
    }
}

TEST_F(SilenceScan, OnlyTheFirstChannelIsLookedAt) {
    FeedRig rig;
    rig.transport.open(100, 2, 16);
    rig.write(Samples{0, 20'000, 10, -20'000, 9000, 0});
    EXPECT_EQ(rig.hostRing().end(), 1);
}

TEST_F(SilenceScan, OppositeChannelsAreNoSilence) {
    FeedRig rig;
    rig.transport.open(100, 2, 16);
    rig.write(Samples{9000, -9000, 9000, -9000});
    EXPECT_EQ(rig.hostRing().end(), 2);
}

TEST_F(SilenceScan, WorksInEveryDepth) {
    for (const int bits : {8, 16, 24, 28, 32, 64}) {
        FeedRig rig;
        rig.transport.open(100, 2, bits);
        const int frameBytes = bytesPerFrame(rig.stream.format());
        std::vector<std::uint8_t> bytes(static_cast<std::size_t>(10 * frameBytes),
                                        bits == 8 ? 0x80 : 0x00);
        // The sixth frame is loud.
        const std::uint8_t loud = bits == 8 ? 0xFF : bits == 64 ? 0xBF : 0x3F;
        for (int i = 0; i < frameBytes; ++i)
            bytes[static_cast<std::size_t>(5 * frameBytes + i)] = loud;
        rig.write(bytes);
        EXPECT_EQ(rig.hostRing().end(), 5) << bits;
    }
}

TEST_F(SilenceScan, RecordingNeverSkips) {
    engine.output.outputMode = 1;
    write(Samples(50));
    EXPECT_EQ(appended().size(), 50u);
    EXPECT_FALSE(stream.skipSilence.load());
}

TEST_F(SilenceScan, ACloseAsksForItAgain) {
    write({9000});
    write(Samples(3));
    stream.silenceFrames.store(77);
    transport.close();
    EXPECT_TRUE(stream.skipSilence.load());
    EXPECT_EQ(stream.silenceFrames.load(), 0);
}

TEST_F(SilenceScan, AnAbsurdRateDoesNotOverflow) {
    FeedRig rig;
    rig.transport.open(2'147'483'647, 1, 16);
    rig.write(Samples(10));
    EXPECT_EQ(rig.hostRing().end(), 0);
    FeedRig other;
    other.transport.open(-5, 1, 16);
    other.write(Samples(10));
    EXPECT_EQ(other.hostRing().end(), 10) << "no time to search in";
}

} // namespace
} // namespace velorine::test
