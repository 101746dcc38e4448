#include "bench/ThreadTime.h"
#include "chain/RingAppend.h"
#include "foundation/CpuFeatures.h"
#include "stages/resample/ResampleStage.h"
#include "tests/support/Blocks.h"

#include <benchmark/benchmark.h>
#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

namespace velorine {
namespace {

constexpr int seconds = 60;
constexpr int blockFrames = 1152; ///< of the input, as the chain hands it on
constexpr int turns = 7;

std::vector<std::int32_t> noise(int frames) {
    std::mt19937 generator{11};
    std::vector<std::int32_t> pairs(static_cast<std::size_t>(frames) * 2);
    for (std::int32_t& sample : pairs)
        sample = static_cast<std::int32_t>(generator()) / 2;
    return pairs;
}

/// CPU time of `ResampleStage::process` over `pairs`, streaming; feeding the ring isn't counted.
double runStage(const std::vector<std::int32_t>& pairs, int rate, double outRate,
                std::uint32_t features) {
    FxArena arena;
    FxRing ring;
    ResampleStage stage{features};
    stage.enable = true;
    stage.srate = static_cast<float>(outRate);
    const SampleFormat format = test::formatOf(sampleType::int32, 2, rate);
    double spent = 0.0;
    for (std::size_t at = 0; at < pairs.size(); at += 2 * blockFrames) {
        const std::size_t end = std::min(at + 2 * blockFrames, pairs.size());
        appendTo(ring, test::blockOf(arena, format,
                                     std::vector<std::int32_t>(
                                         pairs.begin() + static_cast<std::ptrdiff_t>(at),
                                         pairs.begin() + static_cast<std::ptrdiff_t>(end)),
                                     0, 0));
        const double begin = threadSeconds();
        for (;;) {
            FxBlock out;
            if (!stage.process(arena, out, ring, 4096)) break;
            benchmark::DoNotOptimize(out.data());
        }
        spent += threadSeconds() - begin;
        const std::int64_t start = stage.inputStartFor(0, FxPos::fromFrame(stage.nextInput)) - 8;
        while (ring.count() > 1 && ring.oldest().posEnd <= start)
            ring.pop();
    }
    return spent;
}

double runSoxr(const std::vector<std::int32_t>& pairs, int rate, double outRate) {
    soxr_error_t error = nullptr;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_INT32_I, SOXR_INT32_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    soxr_t const soxr = soxr_create(rate, outRate, 2, &error, &io, &quality, &runtime);
    std::vector<std::int32_t> out(2 * 16'384);
    double spent = 0.0;
    for (std::size_t at = 0; at < pairs.size(); at += 2 * blockFrames) {
        const std::size_t frames = std::min<std::size_t>(blockFrames, (pairs.size() - at) / 2);
        std::size_t done = 0;
        const double begin = threadSeconds();
        soxr_process(soxr, pairs.data() + at, frames, nullptr, out.data(), out.size() / 2, &done);
        benchmark::DoNotOptimize(out.data());
        spent += threadSeconds() - begin;
    }
    soxr_delete(soxr);
    return spent;
}

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + turns / 2, values.end());
    return values[turns / 2];
}

/// Medians over turns of both, one after the other.
void againstSoxr(benchmark::State& state, int rate, double outRate, std::uint32_t features) {
    if (!covers(cpuFeatures(), features)) {
        state.SkipWithError("not on this processor");
        return;
    }
    const std::vector<std::int32_t> pairs = noise(rate * seconds);
    for (auto _ : state) {
        std::vector<double> ours;
        std::vector<double> theirs;
        for (int turn = 0; turn < turns; ++turn) {
            ours.push_back(runStage(pairs, rate, outRate, features));
            theirs.push_back(runSoxr(pairs, rate, outRate));
        }
        state.counters["ns_frame"] = median(ours) / (outRate * seconds) * 1e9;
        state.counters["soxr_ns_frame"] = median(theirs) / (outRate * seconds) * 1e9;
        state.counters["ratio"] = median(ours) / median(theirs);
    }
}

const double oddRate = 48000.0 * std::exp2(0.013);
constexpr std::uint32_t sse2 = cpuFeature::sse | cpuFeature::sse2;
constexpr std::uint32_t avx2 = sse2 | cpuFeature::avx2Fma;

BENCHMARK_CAPTURE(againstSoxr, 44100_to_48000_avx2, 44100, 48000.0, avx2)->Iterations(1);
BENCHMARK_CAPTURE(againstSoxr, 44100_to_odd_avx2, 44100, oddRate, avx2)->Iterations(1);
BENCHMARK_CAPTURE(againstSoxr, 96000_to_44100_avx2, 96000, 44100.0, avx2)->Iterations(1);
BENCHMARK_CAPTURE(againstSoxr, 48000_to_96000_avx2, 48000, 96000.0, avx2)->Iterations(1);
BENCHMARK_CAPTURE(againstSoxr, 44100_to_48000_sse2, 44100, 48000.0, sse2)->Iterations(1);

/// A design at the defaults.
void designFilter(benchmark::State& state) {
    ResampleFilter filter;
    for (auto _ : state) {
        filter.redesign = true;
        filter.design();
    }
}
BENCHMARK(designFilter)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace velorine

BENCHMARK_MAIN();
