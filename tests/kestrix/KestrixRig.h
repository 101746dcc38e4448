#pragma once

#include "chain/RingAppend.h"
#include "config/EmbeddedPreset.h"
#include "config/MemoryStore.h"
#include "config/RegistryNode.h"
#include "kestrix/KestrixStage.h"
#include "tests/support/Blocks.h"

#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

namespace velorine::test {

/// Settings as the factory tunes them.
inline KestrixParameters factorySettings() {
    MemoryStore store;
    applyPreset(store);
    RegistryNode node{store, RegistryNode::read};
    KestrixParameters parameters;
    parameters.exchange(node);
    parameters.magnitude = 20.0 / 28.0;
    return parameters;
}

/// Stereo noise, white, between `-peak` and `peak`.
inline std::vector<float> noisePairs(int frames, float peak, unsigned seed) {
    std::mt19937 generator{seed};
    std::uniform_real_distribution<float> sample{-peak, peak};
    std::vector<float> pairs(static_cast<std::size_t>(frames) * 2);
    for (float& value : pairs)
        value = sample(generator);
    return pairs;
}

inline std::vector<float> sinePairs(int frames, double hz, double rate, double left, double right) {
    std::vector<float> pairs;
    for (int i = 0; i < frames; ++i) {
        const double value = std::sin(2.0 * std::numbers::pi * hz * i / rate);
        pairs.push_back(static_cast<float>(left * value));
        pairs.push_back(static_cast<float>(right * value));
    }
    return pairs;
}

/// A stage over a ring, without a chain around it.
struct KestrixRig {
    explicit KestrixRig(const KestrixParameters& parameters = factorySettings()) {
        stage.parameters = parameters;
    }

    /// The next frames of the input; time runs with the frames.
    void feed(const std::vector<float>& pairs, int rate) {
        const auto frames = static_cast<std::int64_t>(pairs.size() / 2);
        const FxTime start = ring.empty() ? 0 : ring.newest().timeEnd;
        appendTo(ring, blockOf(arena, formatOf(sampleType::float32, 2, rate), pairs, start,
                               start + frames * ticksPerSecond / rate));
    }

    bool process(int maxFrames = 4096) {
        out = FxBlock{};
        return stage.process(arena, out, ring, maxFrames);
    }

    /// All that the input yields.
    std::vector<float> run() {
        std::vector<float> heard;
        while (process()) {
            const std::vector<float> samples = samplesOf<float>(out);
            heard.insert(heard.end(), samples.begin(), samples.end());
        }
        return heard;
    }

    FxArena arena;
    FxRing ring;
    KestrixStage stage;
    FxBlock out;
};

} // namespace velorine::test
