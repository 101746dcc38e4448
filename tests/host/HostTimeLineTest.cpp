#include "foundation/Thread.h"
#include "tests/host/FeedRig.h"
#include "tests/support/TestHost.h"
#include "tests/support/Worker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <random>

namespace velorine::test {
namespace {

TEST(HostTimes, MillisecondsAreTheLowThirtyTwoBits) {
    EXPECT_EQ(HostTimes::toMs(0), 0);
    EXPECT_EQ(HostTimes::toMs(9'999), 0);
    EXPECT_EQ(HostTimes::toMs(10'000), 1);
    EXPECT_EQ(HostTimes::toMs(-1), 0);
    EXPECT_EQ(HostTimes::toMs(-50'000'000), 0);
    EXPECT_EQ(HostTimes::toMs(2'147'483'647LL * 10'000), 2'147'483'647);
    EXPECT_EQ(HostTimes::toMs(2'147'483'648LL * 10'000), -2'147'483'648LL);
    EXPECT_EQ(HostTimes::toMs(4'294'967'296LL * 10'000), 0);
}

class TimeLineOfHost : public testing::Test, protected FeedRig {};

TEST_F(TimeLineOfHost, TheWrittenTimeCountsFramesWithoutDrift) {
    for (const int rate : {44100, 48000, 11025, 22050, 96000, 37}) {
        FeedRig rig;
        rig.open(rate, 1, 8);
        std::mt19937 random{static_cast<std::uint32_t>(rate)};
        const std::vector<char> data(5000, 99);
        std::int64_t frames = 0;
        while (frames < 1'000'000) {
            const int count = 1 + static_cast<int>(random() % 5000);
            rig.feed.write(data.data(), count);
            frames += count;
            const std::int64_t ms = 1000 * frames / rate;
            ASSERT_NEAR(rig.timeLine.writtenTime(), static_cast<double>(ms), 1) << rate;
        }
    }
}

TEST_F(TimeLineOfHost, TheWrittenTimeCountsFromTheSeek) {
    open(44100, 2, 16);
    writeFrames(44100);
    EXPECT_EQ(timeLine.writtenTime(), 1000);
    transport.flush(60'000);
    EXPECT_EQ(timeLine.writtenTime(), 1000) << "until there is data of the new place";
    writeFrames(22050);
    EXPECT_EQ(timeLine.writtenTime(), 60'500);
    transport.flush(0);
    writeFrames(441);
    EXPECT_EQ(timeLine.writtenTime(), 10);
}

TEST_F(TimeLineOfHost, RightAfterASeekTheOutputTimeIsThere) {
    open(44100, 2, 16);
    writeFrames(44100);
    for (const int ms : {5000, 0, 1, 2'147'483'647, 777, 500, 500}) {
        transport.flush(ms);
        EXPECT_EQ(timeLine.outputTime(), ms);
        EXPECT_EQ(timeLine.writtenTime(), 1000);
    }
    transport.flush(-5);
    EXPECT_EQ(timeLine.outputTime(), 0);
}

TEST_F(TimeLineOfHost, TheStreamsTimeNeverGoesBack) {
    open(48000, 2, 16);
    FxTime before = 0;
    std::mt19937 random{18};
    for (int i = 0; i < 200; ++i) {
        if (random() % 3 == 0) transport.flush(static_cast<int>(random() % 100'000));
        writeFrames(1 + static_cast<int>(random() % 3000));
        const FxTime end = engine.writtenEnd();
        ASSERT_GE(end, before);
        ASSERT_EQ(end, stream.times().writtenEnd);
        before = end;
    }
}

TEST_F(TimeLineOfHost, ASeekIsAppliedAtTheEngineswrittenEnd) {
    open(48000, 2, 16);
    writeFrames(48000);
    transport.flush(7000);
    timeLine.applyPendingSeek();
    const HostTimes times = stream.times();
    EXPECT_EQ(times.timeZero, 10'000'000 - 70'000'000);
    EXPECT_EQ(times.writtenEnd, 10'000'000);
    EXPECT_EQ(times.segmentBase, 10'000'000);
    EXPECT_EQ(times.segmentFrames, 0);
    EXPECT_FALSE(times.seekPending);
    timeLine.applyPendingSeek();
    EXPECT_EQ(stream.times().timeZero, times.timeZero) << "once";
}

TEST_F(TimeLineOfHost, AResyncGoesOnAtWhatIsHeard) {
    engine.start(nullptr, false);
    open(48000, 2, 16);
    writeFrames(48000);
    clock.advance(500);
    const FxTime heard = engine.output.played();
    EXPECT_GT(heard, 4'000'000);
    timeLine.resync(20'000);
    const HostTimes times = stream.times();
    EXPECT_EQ(times.timeZero, heard - 20'000);
    EXPECT_EQ(times.writtenEnd, heard);
    EXPECT_EQ(times.segmentBase, heard);
    EXPECT_EQ(times.segmentFrames, 0);
}

TEST_F(TimeLineOfHost, ThePositionIsNeverBehindThePointSoughtTo) {
    engine.start(nullptr, false);
    open(48000, 2, 16);
    writeFrames(48000);
    clock.advance(500);
    transport.flush(30'000);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(timeLine.outputTime(), 30'000) << "old audio is still being heard";
        clock.advance(5);
    }
    for (int i = 0; i < 20; ++i) {
        writeFrames(2304);
        clock.advance(20);
        ASSERT_GE(timeLine.outputTime(), 30'000);
    }
    clock.advance(300);
    EXPECT_GT(timeLine.outputTime(), 30'000);
}

TEST_F(TimeLineOfHost, ReadersSeeTimesOfOneMoment) {
    // Half a seek would show another zero than the one that belongs to the seek.
    std::atomic<bool> done{false};
    struct Reader final : Thread {
        Reader(HostStream& hostStream, std::atomic<bool>& flag) : stream(hostStream), done(flag) {
            start(false);
        }
        ~Reader() override { join(); }
        std::uint32_t run() override {
            while (!done.load()) {
                const HostTimes times = stream.times();
                EXPECT_EQ(times.seekOffset, times.pendingSeek);
                EXPECT_EQ(times.trackStart, -times.seekOffset);
                kernel().sleep(0);
            }
            return 0;
        }
        HostStream& stream;
        std::atomic<bool>& done;
    };
    Reader reader{stream, done};
    for (FxTime i = 0; i < 2000; ++i) {
        stream.update([i](HostTimes& times) {
            times.seekOffset = i;
            times.trackStart = -i;
            times.pendingSeek = i;
        });
        kernel().sleep(0);
    }
    done.store(true);
}

// -- A host that plays -------------------------------------------------------------------------

TEST(TimesOfARunningHost, PlayAtTheRealPace) {
    TestHost host;
    host.open(44100, 2, 16);
    const std::vector<std::int16_t> second(2 * 44100, 9000);
    host.write(second);
    host.write(second);
    int before = host.out.GetOutputTime();
    for (int i = 0; i < 8; ++i) {
        const std::int64_t begin = host.clock.ticks();
        while (host.clock.ticks() < begin + 10'000'000) {
            const auto* const bytes = reinterpret_cast<const char*>(second.data());
            if (host.writeOnce(bytes, 9216) == 0) host.advance(1);
        }
        const int now = host.out.GetOutputTime();
        EXPECT_NEAR(now - before, 1000, 15);
        before = now;
    }
}

TEST(TimesOfARunningHost, TheOutputTimeNeverGoesBackAndNeverPassesTheWrittenTime) {
    for (std::uint32_t seed = 0; seed < 6; ++seed) {
        TestHost::Setup setup;
        setup.seed = seed;
        setup.mode = seed < 4 ? TestClock::Mode::serial : TestClock::Mode::parallel;
        TestHost host{setup};
        host.open(44100, 2, 16);
        std::atomic<bool> done{false};
        std::atomic<int> floor{0};
        std::atomic<int> seeks{0};
        {
            Worker poller{[&] {
                int before = 0;
                int seen = 0;
                while (!done.load()) {
                    const int round = seeks.load();
                    const int now = host.out.GetOutputTime();
                    if (round == seeks.load() && round % 2 == 0) {
                        EXPECT_TRUE(round != seen || now >= before) << now << " < " << before;
                        EXPECT_GE(now, floor.load());
                        before = now;
                        seen = round;
                    }
                    kernel().sleep(1);
                }
            }};
            std::mt19937 random{seed};
            const std::vector<char> data(9216, 99);
            for (int i = 0; i < 400; ++i) {
                switch (random() % 16) {
                case 0: {
                    const int ms = static_cast<int>(random() % 200'000);
                    seeks.fetch_add(1); // odd: under way
                    host.out.Flush(ms);
                    floor.store(ms);
                    seeks.fetch_add(1);
                    break;
                }
                case 1:
                    host.out.Pause(static_cast<int>(random() % 2));
                    break;
                case 2:
                    host.out.SetVolume(static_cast<int>(random() % 256));
                    break;
                default:
                    if (host.out.CanWrite() > 0)
                        host.out.Write(const_cast<char*>(data.data()), 9216);
                }
                host.advance(static_cast<int>(random() % 30));
            }
            done.store(true);
        }
        EXPECT_LE(host.out.GetOutputTime(), host.out.GetWrittenTime() + 1);
    }
}

} // namespace
} // namespace velorine::test
