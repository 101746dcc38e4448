#include "chain/driver/FxChainEdit.h"
#include "foundation/KeepAwake.h"
#include "host/FxEngine.h"
#include "output/RecorderFile.h"
#include "tests/support/Heard.h"
#include "tests/support/Signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace velorine::test {
namespace {

constexpr int rate = 48000;

/// An engine of its own, fed by hand.
class Rewind : public testing::Test {
protected:
    Rewind() {
        engine.beep.store(false);
        engine.kestrix.parameters.enable = false; // so that frames are known by their values
        engine.start(nullptr, false);
    }

    /// Appends `frames` more of the ramp and lets the chain take them.
    void write(int frames) { append(frames, ramp(frames, 2, rampStart + written)); }

    void append(int frames, const std::vector<std::int32_t>& samples) {
        const auto time = [](int frame) { return frame * ticksPerSecond / rate; };
        engine.input.append({sampleType::int32, 2, rate, fullWidth}, samples.data(),
                            static_cast<std::int64_t>(samples.size()) * 4, time(written),
                            time(written + frames));
        written += frames;
    }

    /// All that was written, to its last frame; late ones may be silent.
    void expectHeardWhole() {
        auto list = stretches(heardFrames(sound), {{rampStart, written}});
        EXPECT_EQ(orderFault(list), "") << described(list);
        std::erase_if(list, [](const Stretch& s) { return s.kind == Stretch::Kind::silence; });
        ASSERT_FALSE(list.empty());
        EXPECT_EQ(list.front().first, 0) << described(list);
        EXPECT_EQ(list.back().end(), written) << described(list);
        EXPECT_TRUE(std::ranges::all_of(list, [](const Stretch& s) {
            return s.kind == Stretch::Kind::programme;
        })) << described(list);
    }

    TestClock clock;
    TestSound sound{clock};
    SystemClock systemClock;
    FxEngine engine{{systemClock, &sound, RecorderFiles::native(), KeepAwake::native()}};
    int written = 0;
};

TEST_F(Rewind, BeyondWhatTheDeviceHoldsLeavesTheDeviceUntouched) {
    write(rate * 2);
    clock.advance(500);
    const std::int64_t handedOver = engine.output.writtenEnd();
    {
        const RecursiveLock::Scope editing{engine.editLock};
        const RecursiveLock::Scope pumping{engine.pumpLock};
        engine.rewind(9999, 0, false);
        EXPECT_EQ(engine.output.writtenEnd(), handedOver);
    }
    clock.advance(4000);
    expectHeardWhole();
}

TEST_F(Rewind, CutsToThePlayingFrameAndItsMargin) {
    write(rate * 3);
    clock.advance(700);
    FxChainEdit edit{engine, 80, nullptr};
    const std::int64_t left = engine.output.writtenEnd() - engine.output.position();
    EXPECT_NEAR(static_cast<double>(left), 0.080 * rate, 1.0);
    EXPECT_EQ(engine.tail.nextFrame, engine.output.writtenEnd());
    EXPECT_EQ(engine.fader.framesOut, engine.output.writtenEnd());
    EXPECT_EQ(edit.margin(), 80);
}

TEST_F(Rewind, AGainIsHeardWithinItsMarginFromOneFrameOnAndNoFrameIsLost) {
    // Steps that halving and dither leave apart.
    const auto valueOf = [](int frame) { return rampStart + 64 * frame; };
    const auto writeSteps = [&](int frames) {
        std::vector<std::int32_t> samples;
        for (int i = 0; i < frames; ++i)
            samples.insert(samples.end(), 2, valueOf(written + i));
        append(frames, samples);
    };
    std::vector<int> changes; // frame from which on each change is heard
    double gain = 1.0;
    for (const int queuedMs : {200, 450, 1000, 3000, 9000}) {
        // What the chain holds runs down to the queue that is wanted.
        writeSteps(rate * queuedMs / 1000);
        while (written - engine.output.position() > std::int64_t{rate} * queuedMs / 1000)
            clock.advance(1);
        const std::int64_t call = clock.ticks();
        {
            FxChainEdit edit{engine, -1, nullptr};
            engine.tail.gain.store(gain = gain == 1.0 ? 0.5 : 1.0);
        }
        writeSteps(rate);
        clock.advance(300);

        const auto frames = heardFrames(sound);
        ASSERT_LE(std::ssize(frames), written);
        int changed = 0;
        for (int i = 0; i < std::ssize(frames); ++i) {
            const HeardFrame& frame = frames[static_cast<std::size_t>(i)];
            const bool scaled = std::abs(frame.value - 0.5 * valueOf(i)) <= 3;
            ASSERT_TRUE(scaled || frame.value == valueOf(i))
                << "frame " << i << ": " << frame.value - valueOf(i) << " off";
            if (frame.tick > call && changed == 0 && scaled == (gain != 1.0)) {
                changed = i;
                EXPECT_LE(frame.tick - call, (engine.flushMs.load() + 30) * 10'000)
                    << queuedMs << " ms queued";
            }
            if (changed > 0) {
                ASSERT_EQ(scaled, gain != 1.0) << "frame " << i;
            }
        }
        EXPECT_GT(changed, changes.empty() ? 0 : changes.back());
        changes.push_back(changed);
    }
}

TEST_F(Rewind, RandomEditsLoseAndRepeatNoFrame) {
    std::mt19937 random{11};
    write(rate * 2);
    clock.advance(300);
    for (int i = 0; i < 200; ++i) {
        const int margin = 20 + static_cast<int>(random() % 380);
        { FxChainEdit edit{engine, margin, random() % 2 ? &engine.fader : nullptr}; }
        clock.advance(static_cast<int>(random() % 60));
        write(static_cast<int>(random() % 6000));
    }
    clock.advance(30'000);
    expectHeardWhole();
}

TEST_F(Rewind, GivesBackLocksAndPrioritiesWhenAnExceptionPasses) {
    write(rate);
    clock.advance(100);
    const int priority = kernel().currentPriority();
    const int worker = engine.playbackThread.priority();
    try {
        FxChainEdit edit{engine, 80, nullptr};
        throw std::runtime_error("what the holder changes went wrong");
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(kernel().currentPriority(), priority);
    EXPECT_EQ(engine.playbackThread.priority(), worker);
    EXPECT_EQ(engine.editLock.users(), 0);
    EXPECT_FALSE(engine.editRequested.isSet());
    clock.advance(3000);
    expectHeardWhole();
}

TEST_F(Rewind, ASecondEngineStandsBesideTheFirstWithoutThreadOrDevice) {
    write(rate);
    clock.advance(200);
    const int threads = Thread::registeredThreads();
    const int opens = sound.opens;
    {
        FxEngine copy{{systemClock, &sound, RecorderFiles::native(), KeepAwake::native()}};
        EXPECT_EQ(Thread::registeredThreads(), threads);
        EXPECT_EQ(sound.opens, opens);
    }
    clock.advance(3000);
    expectHeardWhole();
}

} // namespace
} // namespace velorine::test
