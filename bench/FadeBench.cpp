#include "foundation/CpuFeatures.h"
#include "foundation/SampleFormat.h"
#include "stages/FadeKernels.h"
#include "stages/FadeRamp.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

// What a fade costs a stereo frame, for each law, type and set of loops.

namespace velorine {
namespace {

constexpr int frames = 1152;     ///< of one request of the pump
constexpr int fadeFrames = 7680; ///< 160 ms at 48 kHz

struct Fade {
    const char* name;
    int type;
    bool linear;
};

constexpr Fade fades[] = {
    {"int16/power", sampleType::int16, false},     {"int32/power", sampleType::int32, false},
    {"float32/power", sampleType::float32, false}, {"int16/linear", sampleType::int16, true},
    {"int32/linear", sampleType::int32, true},     {"float32/linear", sampleType::float32, true},
};

/// Noise at half of full scale, as `type` has it.
std::vector<std::byte> noise(int type, std::uint32_t seed) {
    std::mt19937 random{seed};
    std::vector<std::byte> samples(std::size_t{frames} * 2 * 4);
    for (std::size_t i = 0; i < std::size_t{frames} * 2; ++i) {
        const auto word = static_cast<std::int32_t>(random()) / 2;
        if (type == sampleType::int16)
            reinterpret_cast<std::int16_t*>(samples.data())[i] =
                static_cast<std::int16_t>(word >> 16);
        else if (type == sampleType::int32)
            reinterpret_cast<std::int32_t*>(samples.data())[i] = word;
        else
            reinterpret_cast<float*>(samples.data())[i] = static_cast<float>(word) * 0x1p-31F;
    }
    return samples;
}

void mixes(benchmark::State& state, const Fade& fade, const FadeKernels& kernels) {
    const std::vector<std::byte> before = noise(fade.type, 1);
    const std::vector<std::byte> after = noise(fade.type, 2);
    std::vector<std::byte> out(before.size());
    const FadeRamp ramp{fade.type,  2,          frames,     before.data(), after.data(),
                        out.data(), 2 * frames, fadeFrames, fade.linear,   1.0};
    for (auto _ : state) {
        mixRamp(ramp, kernels);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.counters["ns/frame"] = benchmark::Counter(
        1e-9 * frames, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

} // namespace
} // namespace velorine

int main(int argc, char** argv) {
    using namespace velorine;
    for (const Fade& fade : fades) {
        const auto offer = [&](const FadeKernels& kernels) {
            benchmark::RegisterBenchmark(
                (std::string{fade.name} + "/" + kernels.name).c_str(),
                [&](benchmark::State& state) { mixes(state, fade, kernels); });
        };
        offer(plainFadeKernels);
        const FadeKernels& best = fadeKernels(cpuFeatures());
        if (&best != &plainFadeKernels) offer(best);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
