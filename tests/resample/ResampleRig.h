#pragma once

#include "chain/RingAppend.h"
#include "foundation/CpuFeatures.h"
#include "stages/resample/ResampleStage.h"
#include "tests/support/Blocks.h"

#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

namespace velorine::test {

/// A stage over a ring, without a chain around it.
struct ResampleRig {
    explicit ResampleRig(double outRate, double speed = 1.0, std::uint32_t features = cpuFeatures())
        : stage(features) {
        stage.enable = true;
        stage.srate = static_cast<float>(outRate);
        stage.speed = speed;
    }

    /// The next frames of the input, 32-bit stereo; time runs with the frames.
    void feed(const std::vector<std::int32_t>& pairs, int rate) {
        const auto frames = static_cast<std::int64_t>(pairs.size() / 2);
        const FxTime start = ring.empty() ? 0 : ring.newest().timeEnd;
        appendTo(ring, blockOf(arena, formatOf(sampleType::int32, 2, rate), pairs, start,
                               start + frames * ticksPerSecond / rate));
    }

    /// The same, of a function of the frame that yields -1 to 1, in both channels.
    void feed(int frames, int rate, const std::function<double(int)>& signal) {
        std::vector<std::int32_t> pairs;
        for (int i = 0; i < frames; ++i) {
            const double value = std::min(signal(i) * 0x1p31, 0x1p31 - 1.0);
            pairs.insert(pairs.end(), 2, static_cast<std::int32_t>(std::llrint(value)));
        }
        feed(pairs, rate);
    }

    bool process(int maxFrames = 4096) {
        out = FxBlock{};
        return stage.process(arena, out, ring, maxFrames);
    }

    /// All that the input yields.
    std::vector<std::int32_t> run() {
        std::vector<std::int32_t> heard;
        while (process()) {
            const auto samples = samplesOf<std::int32_t>(out);
            heard.insert(heard.end(), samples.begin(), samples.end());
        }
        return heard;
    }

    FxArena arena;
    FxRing ring;
    ResampleStage stage;
    FxBlock out;
};

} // namespace velorine::test
