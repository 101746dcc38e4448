#include "chain/driver/FxChainEdit.h"
#include "foundation/KeepAwake.h"
#include "host/FxEngine.h"
#include "output/RecorderFile.h"
#include "tests/support/Heard.h"
#include "tests/support/Signals.h"

#include <gtest/gtest.h>

#include <random>

namespace velorine::test {
namespace {

constexpr int rate = 48000;

/// An engine of its own, fed by hand.
class Rewind : public testing::Test {
protected:
    Rewind() {
        engine.beep.store(false);
        engine.start(nullptr, false);
    }

    /// Appends `frames` more of the ramp and lets the chain take them.
    void write(int frames) {
        const auto samples = ramp(frames, 2, rampStart + written);
        const auto time = [](int frame) { return frame * ticksPerSecond / rate; };
        engine.input.append({sampleType::int32, 2, rate, fullWidth}, samples.data(),
                            static_cast<std::int64_t>(samples.size()) * 4, time(written),
                            time(written + frames));
        written += frames;
    }

    std::vector<Stretch> heard() { return stretches(heardFrames(sound), {{rampStart, written}}); }

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
    const auto list = heard();
    EXPECT_EQ(orderFault(list), "") << described(list);
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
    const auto list = heard();
    EXPECT_EQ(orderFault(list), "") << described(list);
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
    EXPECT_EQ(heard().back().kind == Stretch::Kind::programme ? heard().back().end() : written,
              written);
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
    EXPECT_EQ(orderFault(heard()), "");
}

} // namespace
} // namespace velorine::test
