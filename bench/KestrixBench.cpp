#include "bench/ThreadTime.h"
#include "chain/RingAppend.h"
#include "config/EmbeddedPreset.h"
#include "config/MemoryStore.h"
#include "config/RegistryNode.h"
#include "foundation/AlignedArray.h"
#include "foundation/CpuFeatures.h"
#include "kestrix/KestrixStage.h"
#include "tests/support/Blocks.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

namespace velorine {
namespace {

constexpr int rate = 48000;
constexpr int fftLen = 4096;
constexpr int hopsAtOnce = 20;

/// One forward and one inverse transform, out of place, as the stage runs them.
class TransformPair {
public:
    TransformPair() {
        for (AlignedArray<Complex>* const array : {&a, &b, &c})
            array->resize(fftLen);
        forward.planComplex(fftLen, a.data(), b.data(), FftDirection::forward);
        inverse.planComplex(fftLen, b.data(), c.data(), FftDirection::backward);
        std::mt19937 generator{1};
        for (int i = 0; i < fftLen; ++i)
            a[i] = static_cast<float>(generator() % 1000) * 1e-3F;
    }
    double run() {
        const double begin = threadSeconds();
        for (int i = 0; i < hopsAtOnce; ++i) {
            forward.execute(a.data(), b.data());
            inverse.execute(b.data(), c.data());
        }
        return threadSeconds() - begin;
    }

private:
    AlignedArray<Complex> a;
    AlignedArray<Complex> b;
    AlignedArray<Complex> c;
    FftPlan forward;
    FftPlan inverse;
};

/// Music at full level: noise that swells, so that the limiter and the soft clip have work.
std::vector<float> programme(int frames) {
    std::mt19937 generator{7};
    std::normal_distribution<float> sample{0.0F, 0.25F};
    std::vector<float> pairs(static_cast<std::size_t>(frames) * 2);
    float left = 0.0F;
    float right = 0.0F;
    for (std::size_t i = 0; i < pairs.size(); i += 2) {
        left += 0.2F * (sample(generator) - left); // more bass than treble, as in music
        right += 0.2F * (sample(generator) - right);
        pairs[i] = 4.0F * left;
        pairs[i + 1] = 4.0F * right;
    }
    return pairs;
}

/// A stage in the middle of a stream that has as much input as it wants.
class StageRun {
public:
    explicit StageRun(std::uint32_t features) : stage(features) {
        MemoryStore store;
        applyPreset(store);
        RegistryNode node{store, RegistryNode::read};
        stage.exchangeSettings(node);
        stage.parameters.magnitude = 20.0 / 28.0;
        const std::vector<float> pairs = programme(rate * 4);
        for (int i = 0; i < 4; ++i)
            appendTo(ring, test::blockOf(arena, test::formatOf(sampleType::float32, 2, rate),
                                         std::vector<float>(pairs.begin() + i * 2 * rate,
                                                            pairs.begin() + (i + 1) * 2 * rate),
                                         i * ticksPerSecond, (i + 1) * ticksPerSecond));
        run();
    }

    double run() {
        stage.seek(0, FxPos::fromFrame(48'000));
        const double begin = threadSeconds();
        for (int i = 0; i < hopsAtOnce; ++i) {
            FxBlock out;
            benchmark::DoNotOptimize(stage.process(arena, out, ring, 4096));
        }
        return threadSeconds() - begin;
    }

private:
    FxArena arena;
    FxRing ring;
    KestrixStage stage;
};

/// CPU time of a hop over that of the two transforms, both taken in turns.
void processPerHop(benchmark::State& state, std::uint32_t features) {
    if (!covers(cpuFeatures(), features)) {
        state.SkipWithError("not on this processor");
        return;
    }
    TransformPair pair;
    StageRun stage{features};
    double pairTime = 0.0;
    double stageTime = 0.0;
    int hops = 0;
    for (auto _ : state) {
        pairTime += pair.run();
        stageTime += stage.run();
        hops += hopsAtOnce;
    }
    state.counters["us_hop"] = stageTime / hops * 1e6;
    state.counters["us_pair"] = pairTime / hops * 1e6;
    state.counters["ratio"] = stageTime / pairTime;
}

void rebuildFilters(benchmark::State& state) {
    const FrameSizes sizes = computeFrameSizes(rate);
    MemoryStore store;
    applyPreset(store);
    RegistryNode node{store, RegistryNode::read};
    KestrixParameters parameters;
    parameters.exchange(node);
    if (state.range(0) != 0)
        for (double& delay : parameters.del)
            delay = 0.001;
    BandFilters filters;
    filters.rebuild(parameters, rate, sizes);
    for (auto _ : state)
        filters.rebuild(parameters, rate, sizes);
}

BENCHMARK_CAPTURE(processPerHop, avx2, cpuFeature::sse2 | cpuFeature::avx2Fma);
BENCHMARK_CAPTURE(processPerHop, sse2, cpuFeature::sse2);
BENCHMARK(rebuildFilters)->Arg(0)->Arg(1)->ArgName("delays")->Unit(benchmark::kMicrosecond);

} // namespace
} // namespace velorine
BENCHMARK_MAIN();
