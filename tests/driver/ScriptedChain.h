#pragma once

#include "chain/BlockPassing.h"
#include "chain/driver/FxChainEdit.h"
#include "chain/driver/FxChainHost.h"
#include "foundation/KeepAwake.h"
#include "foundation/PriorityScope.h"
#include "tests/support/Blocks.h"
#include "tests/support/MemoryFiles.h"
#include "tests/support/TestClock.h"
#include "tests/support/TestSound.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace velorine::test {

/// A stage that hands its input on and writes down that it was asked. A script may do the work in
/// its place.
class ScriptedStage final : public FxStage {
public:
    enum class Does { passOn, nothing, stand, fail };

    ScriptedStage(std::string stageName, std::vector<std::string>& callLog)
        : name(std::move(stageName)), log(callLog) {}

    bool process(FxArena& sampleArena, FxBlock& out, FxRing& in, int maxFrames) override {
        log.push_back(name);
        asked.push_back(maxFrames);
        if (onProcess) onProcess();
        switch (does) {
        case Does::nothing:
            return false;
        case Does::fail:
            throw 1;
        case Does::stand:
            markPosition(out, 0, nextFrame);
            standing = true;
            return true;
        case Does::passOn:
            break;
        }
        if (maxFrames == 0) {
            markPosition(out, 0, nextFrame);
            standing = true;
            return true;
        }
        if (!passBlock(sampleArena, out, in, converter, nextFrame, cursor)) return false;
        framesOut += out.frames();
        return true;
    }
    void seek(int delta, const FxPos& pos) override {
        FxStage::seek(delta, pos);
        nextFrame = pos.whole;
        framesOut += delta;
        ++seeks;
    }
    void reset() override { ++resets; }
    bool held() const override { return isHeld; }
    void checkPlace(std::int64_t ringEnd) const override { EXPECT_EQ(framesOut, ringEnd); }

    const std::string name;
    std::vector<std::string>& log;
    std::vector<int> asked; ///< `maxFrames` of each call
    Does does = Does::passOn;
    std::function<void()> onProcess;
    bool isHeld = false;
    std::int64_t nextFrame = 0;
    std::int32_t cursor = 0;
    std::int64_t framesOut = 0;
    int seeks = 0;
    int resets = 0;
};

/// What the playback thread says of the machine's sleep.
class LoggedAwake final : public KeepAwake {
public:
    void require(bool awake) override { said.push_back(awake); }
    std::vector<bool> said;
};

/// A host input and two scripted stages.
class ScriptedChain final : public FxChainHost {
public:
    explicit ScriptedChain(const Surroundings& surroundings) : FxChainHost(surroundings) {
        addStage(input);
        addStage(middle);
        addStage(last);
    }
    ~ScriptedChain() override { stopChain(); }

    void start() { startChain(false); }
    void end() { stopChain(); }

    std::vector<std::string> log;
    ScriptedStage middle{"middle", log};
    ScriptedStage last{"last", log};
};

/// A scripted chain on a test device. Serial: other threads run only while the test waits.
struct ChainRig {
    explicit ChainRig(TestClock::Mode mode = TestClock::Mode::serial, std::uint32_t seed = 0)
        : clock(mode, seed) {}

    FxRing& ring(int index) { return *chain.chain[index].ring; }

    /// Appends what a host writes next: stereo 32-bit frames that count on from 1.
    void write(int frames, int rate = 48000) {
        std::vector<std::int32_t> samples;
        for (int i = 0; i < frames; ++i) {
            ++written;
            samples.insert(samples.end(), 2, written);
        }
        if (rate != segmentRate) {
            segmentBase = chain.writtenEnd();
            segmentFrames = 0;
            segmentRate = rate;
        }
        segmentFrames += frames;
        chain.input.append(formatOf(sampleType::int32, 2, rate), samples.data(), 8 * frames,
                           chain.writtenEnd(), segmentBase + ticksPerSecond * segmentFrames / rate);
    }

    /// Frames that were heard, without the silence around them.
    std::vector<std::int32_t> heard() {
        std::vector<std::int32_t> loud;
        const auto all = sound.heard<std::int32_t>();
        for (std::size_t i = 0; i < all.size(); i += 2)
            if (all[i] != 0) loud.push_back(all[i]);
        return loud;
    }

    /// All that was written, as it should be heard.
    std::vector<std::int32_t> all() const {
        std::vector<std::int32_t> frames;
        for (std::int32_t i = 1; i <= written; ++i)
            frames.push_back(i);
        return frames;
    }

    TestClock clock;
    SystemClock time;
    TestSound sound{clock};
    MemoryFiles files;
    LoggedAwake awake;
    ScriptedChain chain{{time, &sound, files, awake}};
    std::int32_t written = 0; ///< frames; also the sample of the last one

private:
    FxTime segmentBase = 0; ///< where frames of this rate began
    std::int64_t segmentFrames = 0;
    int segmentRate = 48000;
};

} // namespace velorine::test
