#include "foundation/PriorityScope.h"
#include "tests/host/FeedRig.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

using Samples = std::vector<std::int16_t>;

class HostWrite : public testing::Test, protected FeedRig {};

TEST_F(HostWrite, BlocksCoverTheTimeOfTheirFrames) {
    open(44100, 2, 16);
    for (int i = 0; i < 3; ++i)
        writeFrames(1152);
    ASSERT_EQ(hostRing().count(), 3);
    EXPECT_EQ(hostRing().at(0).timeEnd, 261'224);
    EXPECT_EQ(hostRing().at(1).timeStart, 261'224);
    EXPECT_EQ(hostRing().at(1).timeEnd, 522'448);
    EXPECT_EQ(hostRing().at(2).timeEnd, 783'673) << "from the running count, without drift";
    EXPECT_EQ(hostRing().at(2).posEnd, 3456);
    EXPECT_EQ(stream.times().segmentFrames, 3456);
}

TEST_F(HostWrite, TheUsualChunkIs48Ms) {
    open(48000, 2, 16);
    write(std::vector<char>(9216, 1));
    EXPECT_EQ(hostRing().end(), 2304);
    EXPECT_EQ(stream.times().writtenEnd, 480'000);
}

TEST_F(HostWrite, APartOfAFrameAtTheEndIsIgnored) {
    open(48000, 2, 24);
    write(std::vector<char>(6 * 10 + 5, 1));
    EXPECT_EQ(hostRing().end(), 10);
    EXPECT_EQ(stream.times().segmentFrames, 10);
    write(std::vector<char>(5, 1));
    EXPECT_EQ(hostRing().end(), 10);
}

TEST_F(HostWrite, NothingIsNoWrite) {
    open(48000, 2, 16);
    const char byte = 0;
    feed.write(&byte, 0);
    feed.write(&byte, -4);
    feed.write(nullptr, 0);
    EXPECT_TRUE(hostRing().empty());
    EXPECT_EQ(stream.times().writtenEnd, 0);
}

TEST_F(HostWrite, NullDataIsNoWrite) {
    transport.open(48000, 2, 16); // with the silence scan on, too
    feed.write(nullptr, 4000);
    stream.skipSilence.store(false);
    feed.write(nullptr, 4000);
    EXPECT_TRUE(hostRing().empty());
    EXPECT_EQ(stream.times().writtenEnd, 0);
}

TEST_F(HostWrite, BeforeAnOpenThereIsNothingToWriteTo) {
    writeFrames(100);
    EXPECT_TRUE(hostRing().empty());
}

TEST_F(HostWrite, ASeekStaysPendingWhereNothingIsWritten) {
    open(48000, 2, 16);
    transport.flush(5000);
    feed.write(nullptr, 0);
    EXPECT_TRUE(stream.times().seekPending);
    writeFrames(10);
    EXPECT_FALSE(stream.times().seekPending);
}

TEST_F(HostWrite, ChannelCountsThatNobodyCanPlayAreIgnored) {
    for (const int channels : {0, -1, -2'147'483'647, 17, 1000, 1'000'000'000, 2'147'483'647}) {
        open(48000, channels, 64);
        write(std::vector<char>(4096, 1));
        EXPECT_TRUE(hostRing().empty()) << channels;
    }
    open(48000, 16, 16);
    write(std::vector<char>(320, 1));
    EXPECT_EQ(hostRing().end(), 10);
}

TEST_F(HostWrite, WithoutARateTheTimeIsNotDivided) {
    open(0, 2, 16);
    writeFrames(3);
    EXPECT_EQ(stream.times().writtenEnd, 30'000'000);
}

TEST_F(HostWrite, RunsAtAHighPriorityAndGivesItBack) {
    kernel().setCurrentPriority(1);
    open(48000, 2, 16);
    writeFrames(10);
    EXPECT_EQ(kernel().currentPriority(), 1);
    const char byte = 0;
    feed.write(&byte, 0);
    EXPECT_EQ(kernel().currentPriority(), 1);
    transport.flush(0);
    writeFrames(10);
    EXPECT_EQ(kernel().currentPriority(), 1);
    engine.output.outputMode = 1;
    writeFrames(10);
    EXPECT_EQ(kernel().currentPriority(), 1);
}

TEST_F(HostWrite, EachWriteGivesCreditThatDecidesNothing) {
    open(48000, 2, 16);
    writeFrames(10);
    EXPECT_EQ(stream.writeCredit.load(), 2);
    stream.writeCredit.store(0);
    const char byte = 0;
    feed.write(&byte, 0); // one that takes nothing, too
    EXPECT_EQ(stream.writeCredit.load(), 2);
}

TEST_F(HostWrite, TheEndOfFileFlagDecidesNothing) {
    open(48000, 2, 16);
    stream.endOfFile.store(true);
    transport.close(); // no window: the answer is no
    EXPECT_FALSE(stream.endOfFile.load());
    EXPECT_TRUE(stream.times().seekPending) << "it was a stop";
}

TEST_F(HostWrite, TheFadeInIsAskedForOnceAndOnlyForFrames) {
    engine.start(nullptr, false);
    transport.open(48000, 2, 16);
    writeFrames(20'000);
    clock.advance(50);
    stream.fadeInKind.store(fadeInAfterSeek);
    stream.skipSilence.store(true);
    write(Samples(2000));
    EXPECT_EQ(stream.fadeInKind.load(), fadeInAfterSeek) << "silence has nothing to fade";
    EXPECT_EQ(engine.fader.records.count(), 0);
    writeFrames(1000);
    EXPECT_EQ(stream.fadeInKind.load(), 0);
    ASSERT_EQ(engine.fader.records.count(), 1);
    EXPECT_EQ(engine.fader.records.newest().spliceEnd - engine.fader.records.newest().spliceStart,
              7680);
    writeFrames(1000);
    EXPECT_EQ(engine.fader.records.count(), 1);
    stream.fadeInKind.store(fadeInAfterStop);
    writeFrames(1000);
    EXPECT_EQ(engine.fader.records.newest().spliceEnd - engine.fader.records.newest().spliceStart,
              1920);
}

TEST_F(HostWrite, TheFadeInJoinsWhereTheNewAudioBegins) {
    engine.start(nullptr, false);
    transport.open(48000, 2, 16);
    writeFrames(20'000);
    clock.advance(50);
    stream.fadeInKind.store(fadeInAfterSeek);
    stream.skipSilence.store(true);
    write(Samples(9600)); // a tenth of a second that is dropped
    Samples mixed(2000);
    mixed.resize(4000, 9000);
    write(mixed);
    EXPECT_EQ(hostRing().end(), 21'000);
    EXPECT_EQ(engine.fader.records.newest().resume, 20'000) << "no frame of it is skipped";
}

} // namespace
} // namespace velorine::test
