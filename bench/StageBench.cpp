#include "bench/ThreadTime.h"
#include "chain/RingAppend.h"
#include "foundation/CpuFeatures.h"
#include "kestrix/dsphost/WaDspStage.h"
#include "kestrix/dsphost/WinampDsp.h"
#include "stages/LimiterStage.h"
#include "stages/MixerStage.h"
#include "stages/PeakEqStage.h"
#include "stages/SpliceStage.h"
#include "stages/TestSignalStage.h"
#include "tests/support/Blocks.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

// What the stages outside the chain cost a stereo frame, with the windows that they read.

namespace velorine {
namespace {

constexpr int rate = 48000;
constexpr int seconds = 10;
constexpr int blockFrames = 1152; ///< of the input, as the chain hands it on

/// Music at `level` times full scale at its loudest: bass and treble that swell.
std::vector<float> programme(float level) {
    std::mt19937 random{7};
    std::normal_distribution<float> noise{0.0F, 0.25F};
    std::vector<float> pairs;
    float left = 0.0F;
    float right = 0.0F;
    for (int i = 0; i < rate * seconds; ++i) {
        const float swell = 0.6F + 0.4F * std::sin(static_cast<float>(i) * 1e-4F);
        left += 0.2F * (noise(random) - left);
        right += 0.2F * (noise(random) - right);
        pairs.push_back(std::clamp(left * swell * 4.0F, -1.0F, 1.0F) * level);
        pairs.push_back(std::clamp(right * swell * 4.0F, -1.0F, 1.0F) * level);
    }
    return pairs;
}

template <typename Sample>
std::vector<Sample> scaled(const std::vector<float>& pairs) {
    if constexpr (std::is_same_v<Sample, float>) {
        return pairs;
    } else {
        const double fullScale = std::ldexp(1.0, 8 * static_cast<int>(sizeof(Sample)) - 1) - 1.0;
        std::vector<Sample> samples;
        samples.reserve(pairs.size());
        for (const float x : pairs)
            samples.push_back(static_cast<Sample>(static_cast<double>(x) * fullScale));
        return samples;
    }
}

/// CPU time of `process` over the programme, streaming; feeding the ring isn't counted.
template <typename Sample>
void runStage(benchmark::State& state, FxStage& stage, int type, float level) {
    FxArena arena;
    FxRing ring;
    const std::vector<Sample> samples = scaled<Sample>(programme(level));
    const SampleFormat format = test::formatOf(type, 2, rate);
    double spent = 0.0;
    std::int64_t frames = 0;
    for (auto _ : state) {
        for (std::size_t at = 0; at + 2 * blockFrames <= samples.size(); at += 2 * blockFrames) {
            const auto first = samples.begin() + static_cast<std::ptrdiff_t>(at);
            appendTo(ring,
                     test::blockOf(arena, format,
                                   std::vector<Sample>(first, first + 2 * blockFrames), 0, 0));
            const double begin = threadSeconds();
            for (;;) {
                FxBlock out;
                if (!stage.process(arena, out, ring, blockFrames)) break;
                benchmark::DoNotOptimize(out.data());
            }
            spent += threadSeconds() - begin;
            const std::int64_t start =
                stage.inputStartFor(0, FxPos::fromFrame(stage.nextInput)) - 8;
            while (ring.count() > 1 && ring.oldest().posEnd <= start)
                ring.pop();
            frames += blockFrames;
        }
    }
    state.counters["ns/frame"] = spent / static_cast<double>(frames) * 1e9;
}

void mixer(benchmark::State& state, int type) {
    MixerStage stage;
    stage.enable = true;
    if (type == sampleType::int16) runStage<std::int16_t>(state, stage, type, 1.0F);
    if (type == sampleType::int32) runStage<std::int32_t>(state, stage, type, 1.0F);
    if (type == sampleType::float32) runStage<float>(state, stage, type, 1.0F);
}

void limiter(benchmark::State& state, std::uint32_t features, float level) {
    LimiterStage stage{features};
    runStage<float>(state, stage, sampleType::float32, level);
}

void splice(benchmark::State& state, std::uint32_t features, double ratio) {
    SpliceStage stage{features};
    stage.ratio = ratio;
    runStage<std::int16_t>(state, stage, sampleType::int16, 1.0F);
}

void peakEq(benchmark::State& state) {
    PeakEqStage stage;
    runStage<float>(state, stage, sampleType::float32, 0.3F);
}

/// Needs no input, so its output counts.
void testSignal(benchmark::State& state) {
    TestSignalStage stage;
    stage.enable = true;
    stage.toneBOn = true;
    stage.noiseOn = true;
    FxArena arena;
    FxRing ring;
    for (auto _ : state) {
        FxBlock out;
        benchmark::DoNotOptimize(stage.process(arena, out, ring, blockFrames));
    }
    state.counters["ns/frame"] = benchmark::Counter(1e-9 * TestSignalStage::blockFrames,
                                                    benchmark::Counter::kIsIterationInvariantRate |
                                                        benchmark::Counter::kInvert);
}

/// What it costs to host a plug-in that does nothing.
void dspHost(benchmark::State& state) {
    static winampDSPHeader header{};
    static winampDSPModule module{};
    module.ModifySamples = [](winampDSPModule*, std::int16_t*, int count, int, int, int) {
        return count;
    };
    WaDspStage stage;
    stage.loader = [] { return WaDspStage::Plugin{nullptr, &header, &module}; };
    stage.enable = true;
    runStage<float>(state, stage, sampleType::float32, 1.0F);
}

constexpr float twelveDb = 3.98F;

BENCHMARK_CAPTURE(mixer, int16, sampleType::int16);
BENCHMARK_CAPTURE(mixer, int32, sampleType::int32);
BENCHMARK_CAPTURE(mixer, float32, sampleType::float32);
BENCHMARK_CAPTURE(limiter, plain_quiet, 0U, 0.9F);
BENCHMARK_CAPTURE(limiter, plain_12dB_over, 0U, twelveDb);
BENCHMARK_CAPTURE(limiter, best_quiet, cpuFeatures(), 0.9F);
BENCHMARK_CAPTURE(limiter, best_12dB_over, cpuFeatures(), twelveDb);
BENCHMARK_CAPTURE(splice, plain_slower, 0U, 0.9);
BENCHMARK_CAPTURE(splice, best_slower, cpuFeatures(), 0.9);
BENCHMARK_CAPTURE(splice, best_faster, cpuFeatures(), 1.1);
BENCHMARK(peakEq);
BENCHMARK(dspHost);
BENCHMARK(testSignal);

} // namespace
} // namespace velorine

BENCHMARK_MAIN();
