#pragma once

#include "chain/RingAppend.h"
#include "chain/driver/FxOutput.h"
#include "foundation/Thread.h"
#include "tests/support/Blocks.h"
#include "tests/support/FakeFxClock.h"
#include "tests/support/MemoryFiles.h"
#include "tests/support/TestClock.h"
#include "tests/support/TestSound.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace velorine::test {

/// Sets an event after a time, unless it is gone before: ends what would wait for ever.
class SetLater final : public Thread {
public:
    SetLater(FlaggedEvent& event, int delayMs) : target(event), ms(delayMs) { start(false); }
    ~SetLater() override { join(); }

    std::uint32_t run() override {
        if (!stop.wait(ms)) target.set();
        return 0;
    }

private:
    FlaggedEvent& target;
    const int ms;
};

/// An output step alone, behind a ring that a test fills, on a test device.
template <typename Sound>
struct OutputRigOn {
    explicit OutputRigOn(SoundSystem* soundSystem = nullptr)
        : output(time, engine, arena, soundSystem ? soundSystem : &sound, files,
                 [] { return false; }) {
        engine.ring = &ring;
        pace = {&stop, &edit, true};
        insideEdit = {&stop, nullptr, false};
    }
    ~OutputRigOn() { output.stopThreads(); }

    void start() { output.start(ring, false); }

    /// Adds `frames` frames whose samples are `sample`, `sample + step`, ..., at the ring's end and
    /// for as long as they last.
    template <typename Sample>
    void add(int frames, const SampleFormat& format, Sample sample, Sample step = 1) {
        std::vector<Sample> samples;
        for (int i = 0; i < frames; ++i) {
            samples.insert(samples.end(), static_cast<std::size_t>(format.channels), sample);
            sample = static_cast<Sample>(sample + step);
        }
        const FxTime begin = ring.empty() ? 0 : ring.newest().timeEnd;
        commitTo(ring, blockOf(arena, format, samples, begin,
                               begin + ticksPerSecond * frames / format.rate));
    }

    /// Stereo 32-bit frames at 48 kHz that count from `first` on.
    void count(int frames, std::int32_t first, int rate = 48000) {
        add<std::int32_t>(frames, formatOf(sampleType::int32, 2, rate), first);
    }

    /// Serves until there is nothing new, or `stop` is set.
    void serveAll() {
        while (output.service(pace) && !stop.isSet()) {
        }
    }

    /// The same as far as the device's buffer goes, without a wait.
    void serveAtOnce() {
        while (output.service(insideEdit) && !stop.isSet()) {
        }
    }

    /// Lets what is queued play out.
    void playOut() {
        output.outputTail(pace);
        for (int i = 0; i < 1000 && output.bufferedMs() > 0; ++i)
            clock.advance(10);
        clock.advance(300);
    }

    TestClock clock;
    SystemClock time;
    Sound sound = makeSound();
    MemoryFiles files;
    FakeFxClock engine;
    FxArena arena;
    FxRing ring;
    FlaggedEvent stop;
    FlaggedEvent edit;
    FxOutput output;
    FxOutput::Pace pace;
    FxOutput::Pace insideEdit;

private:
    Sound makeSound() {
        if constexpr (std::is_constructible_v<Sound, TestClock&>)
            return Sound(clock);
        else
            return Sound();
    }
};

using OutputRig = OutputRigOn<TestSound>;

/// The frames of `heard` that aren't silent; of each its first channel.
inline std::vector<std::int32_t> loudFrames(const std::vector<std::int32_t>& heard,
                                            int channels = 2) {
    std::vector<std::int32_t> loud;
    for (std::size_t i = 0; i < heard.size(); i += static_cast<std::size_t>(channels))
        if (heard[i] != 0) loud.push_back(heard[i]);
    return loud;
}

} // namespace velorine::test
