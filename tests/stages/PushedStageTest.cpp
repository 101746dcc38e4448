#include "chain/driver/FxChainEdit.h"
#include "chain/driver/FxChainHost.h"
#include "foundation/KeepAwake.h"
#include "stages/LimiterStage.h"
#include "stages/MixerStage.h"
#include "stages/PeakEqStage.h"
#include "stages/SpliceStage.h"
#include "stages/TailStage.h"
#include "stages/TestSignalStage.h"
#include "tests/support/Blocks.h"
#include "tests/support/MemoryFiles.h"
#include "tests/support/TestClock.h"
#include "tests/support/TestSound.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <random>
#include <vector>

// The stages that stand outside the engine's chain, pushed onto one and played: by the playback
// thread, onto a device, with edits on the way.

namespace velorine::test {
namespace {

class IgnoredAwake final : public KeepAwake {
public:
    void require(bool) override {}
};

template <typename Stage>
class PushedChain final : public FxChainHost {
public:
    explicit PushedChain(const Surroundings& surroundings) : FxChainHost(surroundings) {
        addStage(input);
        addStage(pushed);
        addStage(tail);
        input.notifier = this;
    }
    ~PushedChain() override { stopChain(); }
    void start() { startChain(false); }

    Stage pushed;
    TailStage tail;
};

template <typename Stage>
struct PushedRig {
    Stage& stage() { return chain.pushed; }

    /// A ramp of 16-bit stereo from 1 on, a step a frame, in pieces as a host writes them.
    void writeRamp(int frames) {
        std::mt19937 random{1};
        for (int at = 0; at < frames;) {
            const int count = std::min(1 + static_cast<int>(random() % 2000), frames - at);
            std::vector<std::int16_t> pairs;
            for (int i = 0; i < count; ++i)
                pairs.insert(pairs.end(), 2, static_cast<std::int16_t>(at + i + 1));
            chain.input.append(formatOf(sampleType::int16, 2, 48000), pairs.data(), 4 * count,
                               at * ticksPerSecond / 48000, (at + count) * ticksPerSecond / 48000);
            at += count;
        }
    }

    /// Edits at random while the chain plays; nothing is changed.
    void edit(int times) {
        std::mt19937 random{2};
        for (int i = 0; i < times; ++i) {
            clock.advance(1 + static_cast<int>(random() % 40));
            FxChainEdit edit{chain, static_cast<int>(random() % 150), nullptr};
        }
    }

    /// Left channel of what was heard, in 16-bit steps and without the silence around it.
    std::vector<double> heard() {
        std::vector<double> left;
        for (const TestSound::Passage& passage : sound.passages()) {
            const int bytes = passage.format.containerBits / 8;
            const auto align = static_cast<std::size_t>(passage.format.blockAlign());
            for (std::size_t at = 0; at < passage.frames.size(); at += align) {
                std::int32_t sample = 0; // the container's bytes at its upper end
                std::memcpy(reinterpret_cast<char*>(&sample) + 4 - bytes,
                            passage.frames.data() + at, static_cast<std::size_t>(bytes));
                if (sample != 0) left.push_back(sample / 65536.0);
            }
        }
        return left;
    }

    void playOut() {
        chain.drain(5000);
        clock.advance(500);
    }

    TestClock clock;
    SystemClock time;
    TestSound sound{clock};
    MemoryFiles files;
    IgnoredAwake awake;
    PushedChain<Stage> chain{{time, &sound, files, awake}};
};

constexpr int rampFrames = 30'000;

/// Expects the ramp, all of it but the last `held` frames, within `tolerance`.
/// @return frames that are more than 3 off
int expectRamp(const std::vector<double>& heard, int held, double tolerance) {
    const auto count = static_cast<double>(heard.size());
    EXPECT_NEAR(count, rampFrames - held, 4.0); // a 1 may round to silence
    int off = 0;
    for (std::size_t i = 0; i < heard.size(); ++i) {
        const double expected = rampFrames - held - count + 1.0 + static_cast<double>(i);
        EXPECT_NEAR(heard[i], expected, tolerance) << i;
        if (std::fabs(heard[i] - expected) > 3.0) ++off;
    }
    return off;
}

TEST(PushedStage, TheMixersFrontIsHeardThroughEdits) {
    PushedRig<MixerStage> rig;
    rig.stage().enable = true;
    rig.chain.start();
    rig.writeRamp(rampFrames);
    rig.edit(15);
    rig.playOut();
    EXPECT_EQ(expectRamp(rig.heard(), 2400, 2.0), 0);
}

TEST(PushedStage, TheLimiterLeavesQuietProgrammeAloneThroughEdits) {
    PushedRig<LimiterStage> rig;
    rig.chain.start();
    rig.writeRamp(rampFrames);
    rig.edit(15);
    rig.playOut();
    EXPECT_EQ(expectRamp(rig.heard(), 32, 2.0), 0);
}

TEST(PushedStage, TheEqualiserLeavesABassAloneThroughEdits) {
    PushedRig<PeakEqStage> rig;
    rig.chain.start();
    rig.writeRamp(rampFrames);
    rig.edit(15);
    rig.playOut();
    // What it remembers of the stream ahead rings for a moment behind an edit.
    EXPECT_LT(expectRamp(rig.heard(), 0, 3000.0), rampFrames / 4);
}

TEST(PushedStage, TheSpliceStretchesThroughEdits) {
    PushedRig<SpliceStage> rig;
    rig.stage().ratio = 0.75;
    rig.chain.start();
    rig.writeRamp(rampFrames);
    rig.edit(15);
    rig.playOut();
    const auto heard = rig.heard();
    // Grain 14's outgoing piece begins at 1980 * 14, and grain 15's would end behind the ramp.
    EXPECT_NEAR(static_cast<double>(heard.size()), 14.0 * 2640, 2640.0);
    // A grain's first 22 % are the outgoing piece alone.
    for (int grain = 0; grain < 14; ++grain)
        for (int i = 2; i < 500; ++i)
            ASSERT_NEAR(heard[static_cast<std::size_t>(2640 * grain + i)], 1980 * grain + i + 1,
                        4.0)
                << grain << ", " << i;
}

TEST(PushedStage, TheTestToneGoesOnInPhaseThroughEdits) {
    PushedRig<TestSignalStage> rig;
    rig.stage().enable = true;
    rig.stage().freqA = 1234.5;
    rig.chain.start();
    rig.edit(20);
    const auto heard = rig.heard();
    ASSERT_GT(heard.size(), 10'000U);
    const double step = 2.0 * std::numbers::pi * 1234.5 / 48000.0;
    // Silent frames are left out of what was heard: each puts the phase a step ahead. Of the first,
    // where the tone is 0, dither may be heard.
    double frame = std::fabs(heard[0]) < 1.0 ? 0.0 : 1.0;
    for (const double sample : heard) {
        if (std::fabs(8230.9 * std::sin(step * frame) - sample) > 3.0) frame += 1.0;
        ASSERT_NEAR(8230.9 * std::sin(step * frame), sample, 3.0) << frame;
        frame += 1.0;
    }
    EXPECT_NEAR(frame, static_cast<double>(heard.size()), 5.0);
}

} // namespace
} // namespace velorine::test
