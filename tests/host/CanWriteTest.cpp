#include "tests/host/FeedRig.h"
#include "tests/support/TestHost.h"

#include <gtest/gtest.h>

#include <random>

namespace velorine::test {
namespace {

class CanWrite : public testing::Test, protected FeedRig {
protected:
    /// A track whose free permissions are used up.
    CanWrite() {
        open(48000, 2, 16);
        for (int i = 0; i < 3; ++i)
            feed.canWrite();
    }
};

TEST_F(CanWrite, ThreePermissionsFollowAnOpenWhateverIsBuffered) {
    writeFrames(480'000); // ten seconds ahead
    transport.open(48000, 2, 16);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(feed.canWrite(), 9216) << i;
    EXPECT_EQ(feed.canWrite(), 0);
}

TEST_F(CanWrite, ThreePermissionsFollowASeek) {
    writeFrames(480'000);
    transport.flush(1000);
    stream.update([](HostTimes& times) { times.seekPending = false; });
    stream.fadeInKind.store(0);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(feed.canWrite(), 9216) << i;
    EXPECT_EQ(feed.canWrite(), 0);
    EXPECT_EQ(stream.startupCalls.load(), 3);
}

TEST_F(CanWrite, HoldsTheHostAtEightTenthsOfASecond) {
    writeFrames(38'400); // exactly
    EXPECT_EQ(feed.canWrite(), 9216);
    writeFrames(1);
    EXPECT_EQ(feed.canWrite(), 0);
}

TEST_F(CanWrite, AHostThatIsAboutToFadeInIsNotHeld) {
    writeFrames(480'000);
    EXPECT_EQ(feed.canWrite(), 0);
    stream.fadeInKind.store(fadeInAfterSeek);
    EXPECT_EQ(feed.canWrite(), 9216);
    stream.fadeInKind.store(0);
    stream.update([](HostTimes& times) { times.seekPending = true; });
    EXPECT_EQ(feed.canWrite(), 9216);
}

TEST_F(CanWrite, AStarvingChainTakesWhateverThereIs) {
    writeFrames(480'000);
    engine.inputStarved.set();
    EXPECT_EQ(feed.canWrite(), 9216);
}

TEST_F(CanWrite, WhetherItStarvesIsAskedBeforeTheWakeThatEndsIt) {
    engine.input.notifier = &engine;
    writeFrames(480'000);
    engine.inputStarved.set();
    EXPECT_EQ(feed.canWrite(), 9216);
    EXPECT_FALSE(engine.inputStarved.isSet());
    EXPECT_EQ(feed.canWrite(), 0);
}

TEST_F(CanWrite, WakesTheChainAndTakesItsWishAsHeard) {
    engine.input.notifier = &engine;
    engine.input.wantsData.store(true);
    engine.playbackThread.wakeEvent.reset();
    feed.canWrite();
    EXPECT_FALSE(engine.input.wantsData.load());
    EXPECT_TRUE(engine.playbackThread.wakeEvent.isSet());
    engine.playbackThread.wakeEvent.reset();
    feed.canWrite();
    EXPECT_TRUE(engine.playbackThread.wakeEvent.isSet()) << "wish or not";
}

TEST_F(CanWrite, CreditIsCountedDownWhileTheChainStarvesAndDecidesNothing) {
    writeFrames(10);
    ASSERT_EQ(stream.writeCredit.load(), 2);
    feed.canWrite();
    EXPECT_EQ(stream.writeCredit.load(), 2) << "it doesn't starve";
    for (const int left : {1, 0, 0, 0}) {
        engine.inputStarved.set();
        EXPECT_EQ(feed.canWrite(), 9216);
        EXPECT_EQ(stream.writeCredit.load(), left);
    }
}

TEST_F(CanWrite, TheTimePlayedIsAskedEvenForAFreePermission) {
    engine.start(nullptr, false);
    writeFrames(20'000);
    clock.advance(300);
    stream.startupCalls.store(0);
    feed.canWrite();
    const FxTime reported = engine.output.played();
    EXPECT_GT(reported, 1'000'000);
}

// -- A host that plays -------------------------------------------------------------------------

TEST(CanWriteOfARunningHost, IsAPermissionOrNothing) {
    TestHost host;
    std::mt19937 random{17};
    host.open(44100, 2, 16);
    const std::vector<char> data(9216, 99);
    for (int i = 0; i < 3000; ++i) {
        const int permitted = host.out.CanWrite();
        ASSERT_TRUE(permitted == 0 || permitted == 9216) << permitted;
        if (permitted > 0 && random() % 4 != 0)
            host.out.Write(const_cast<char*>(data.data()), 9216);
        else
            host.advance(static_cast<int>(random() % 40));
        if (random() % 200 == 0) host.out.Flush(static_cast<int>(random() % 100'000));
        if (random() % 100 == 0) host.out.Pause(static_cast<int>(random() % 2));
    }
}

TEST(CanWriteOfARunningHost, HoldsAPausedHost) {
    TestHost host;
    host.open(44100, 2, 16);
    host.write(std::vector<std::int16_t>(2 * 44100, 9000));
    host.out.Pause(1);
    const std::vector<char> data(9216, 99);
    int written = 0;
    for (int i = 0; i < 500; ++i) {
        if (host.out.CanWrite() > 0) {
            host.out.Write(const_cast<char*>(data.data()), 9216);
            ++written;
        }
        host.advance(10);
    }
    EXPECT_LT(written, 40);
    EXPECT_EQ(host.out.CanWrite(), 0);
    const int lead = host.out.GetWrittenTime() - host.out.GetOutputTime();
    EXPECT_GT(lead, 800);
}

TEST(CanWriteOfARunningHost, KeepsTheLeadInItsBounds) {
    TestHost host;
    host.open(44100, 2, 16);
    const std::vector<char> data(9216, 99);
    while (host.clock.ticks() < 200'000'000) {
        if (host.out.CanWrite() > 0) {
            host.out.Write(const_cast<char*>(data.data()), 9216);
            continue;
        }
        const int lead = host.out.GetWrittenTime() - host.out.GetOutputTime();
        const std::int64_t ms = host.clock.ticks() / 10'000;
        ASSERT_GT(lead, 0);
        ASSERT_LT(lead, 1800);
        if (ms > 100 && ms < 2000) {
            ASSERT_GE(lead, 750) << "at " << ms;
            ASSERT_LE(lead, 920) << "at " << ms;
        }
        host.advance(5);
    }
}

} // namespace
} // namespace velorine::test
