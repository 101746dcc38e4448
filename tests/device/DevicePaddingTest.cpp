#include "output/DeviceController.h"

#include "tests/support/TestClock.h"
#include "tests/support/TestSound.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

namespace velorine::test {
namespace {

constexpr SampleFormat mono48{sampleType::int32, 1, 48000, fullWidth};

/// A controller on a device whose cursor plays the buffer's memory in test time.
class DevicePadding : public testing::Test {
protected:
    DevicePadding() {
        controller.configure(mono48, 3, -1);
        controller.open(false);
    }
    ~DevicePadding() override { controller.stopThreads(); }

    /// Writes the next `frames` frames of a count from 1.
    void write(int frames) {
        std::vector<std::int32_t> samples(static_cast<std::size_t>(frames));
        std::iota(samples.begin(), samples.end(),
                  static_cast<std::int32_t>(controller.writtenEnd()) + 1);
        ASSERT_EQ(controller.write(samples.data(), frames), DeviceController::WriteResult::written);
        controller.startIfReady();
    }

    std::int64_t queued() { return controller.writtenEnd() - controller.position(); }

    std::vector<std::int32_t> loud() {
        auto frames = sound.heard<std::int32_t>();
        std::erase(frames, 0);
        return frames;
    }
    std::vector<std::int32_t> counted(std::int64_t to) const {
        std::vector<std::int32_t> frames(static_cast<std::size_t>(to));
        std::iota(frames.begin(), frames.end(), 1);
        return frames;
    }

    TestClock clock;
    SystemClock time;
    TestSound sound{clock};
    DeviceController controller{time, &sound};
    int reads = 0; ///< of the cursor
};

TEST_F(DevicePadding, TheFirstFrameIsHeardAtOnce) {
    write(20'000);
    clock.advance(10);
    const auto frames = sound.heard<std::int32_t>();
    ASSERT_FALSE(frames.empty());
    EXPECT_EQ(frames[0], 1) << "no silence before it";
}

TEST_F(DevicePadding, BehindTheEndThereIsSilenceHoweverLongTheStall) {
    write(30'000);
    clock.advance(60'000);
    EXPECT_EQ(loud(), counted(30'000));
}

TEST_F(DevicePadding, AStallLongerThanTheMarginStopsTheDeviceAndLosesNothing) {
    write(30'000);
    clock.advance(2000);
    EXPECT_TRUE(controller.halted.isSet());
    EXPECT_EQ(controller.position(), 30'000);
    write(5000);
    clock.advance(500);
    EXPECT_TRUE(controller.halted.isSet()) << "not enough for a start";
    EXPECT_EQ(controller.position(), 30'000);
    write(25'000);
    EXPECT_TRUE(controller.running.isSet());
    clock.advance(2000);
    EXPECT_EQ(loud(), counted(60'000));
    EXPECT_EQ(controller.position(), 60'000);
}

TEST_F(DevicePadding, AStallShorterThanTheMarginIsNoUnderRun) {
    write(30'000);
    clock.advance(625 + 80); // 80 ms past the last frame
    EXPECT_TRUE(controller.running.isSet());
    write(30'000); // its first 80 ms come too late to be heard
    clock.advance(1000);
    const auto frames = loud();
    EXPECT_EQ(controller.position(), 60'000);
    ASSERT_GT(frames.size(), 55'000u);
    EXPECT_TRUE(std::is_sorted(frames.begin(), frames.end()));
    EXPECT_EQ(frames.back(), 60'000);
}

TEST_F(DevicePadding, WhatIsTakenBackIsNotHeard) {
    write(60'000);
    clock.advance(300);
    const std::int64_t end = controller.position() + 4800;
    EXPECT_EQ(controller.rewindTo(end), end);
    clock.advance(5000);
    EXPECT_EQ(loud(), counted(end)) << "and silence follows";
}

TEST_F(DevicePadding, TakenBackWhileItStands) {
    write(5000); // not started yet
    EXPECT_EQ(controller.rewindTo(1000), 1000);
    controller.drainSoon();
    controller.startIfReady();
    clock.advance(5000);
    EXPECT_EQ(loud(), counted(1000));
}

TEST_F(DevicePadding, ThePositionFollowsTheCard) {
    sound.cardRate = 1.002;
    std::int64_t before = 0;
    for (int i = 0; i < 600; ++i) {
        while (queued() < 40'000)
            write(4800);
        clock.advance(100);
        const std::int64_t position = controller.position();
        ASSERT_GE(position, before);
        before = position;
        if (i > 60) {
            const double truth = static_cast<double>(clock.ticks()) * 48000 * 1.002 / 1e7;
            ASSERT_NEAR(static_cast<double>(position), truth, 150) << i;
        }
    }
    EXPECT_NEAR(controller.driftRatio(), 1.002, 1e-4);
}

TEST_F(DevicePadding, JitterOfTheCursorIsSmoothed) {
    std::mt19937 random{9};
    sound.cursorError = [&](int frame) {
        return std::clamp(frame + static_cast<int>(random() % 193) - 96, 0, 98559);
    };
    std::int64_t before = 0;
    for (int i = 0; i < 300; ++i) {
        while (queued() < 40'000)
            write(4800);
        clock.advance(100);
        const std::int64_t position = controller.position();
        ASSERT_GE(position, before);
        before = position;
        const double truth = static_cast<double>(clock.ticks()) * 48000 / 1e7;
        // What lies within 3 ms of the estimate is jitter, so both together may be in error.
        ASSERT_NEAR(static_cast<double>(position), truth, 144 + 96) << i;
    }
}

TEST_F(DevicePadding, StallsRewindsAndStopsNeverPlayOldAudio) {
    std::mt19937 random{10};
    for (int round = 0; round < 40; ++round) {
        for (int step = 0; step < 20; ++step) {
            if (queued() < 30'000) write(1 + static_cast<int>(random() % 25'000));
            clock.advance(static_cast<int>(random() % (step % 7 == 6 ? 3000 : 200)));
            if (random() % 3 == 0)
                controller.rewindTo(controller.position() + 960 +
                                    static_cast<std::int64_t>(random() % 20'000));
            if (random() % 6 == 0) controller.drainSoon();
            if (random() % 25 == 0) controller.stop();
        }
    }
    clock.advance(5000);
    const auto frames = loud();
    ASSERT_GT(frames.size(), 100'000u);
    for (std::size_t i = 1; i < frames.size(); ++i)
        ASSERT_GT(frames[i], frames[i - 1]) << "frame " << i << " was heard before";
}

TEST_F(DevicePadding, AFullQueuePollsOnceASecond) {
    sound.cursorError = [this](int frame) {
        ++reads;
        return frame;
    };
    write(70'000);
    clock.advance(3500);
    reads = 0;
    // Past the first seconds the estimate carries on for half a second at a time.
    for (int i = 0; i < 100; ++i) {
        while (queued() < 60'000)
            write(4800);
        clock.advance(100);
    }
    EXPECT_LE(reads, 25);
    EXPECT_GE(reads, 8);
}

} // namespace
} // namespace velorine::test
