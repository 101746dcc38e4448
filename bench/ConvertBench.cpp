#include "foundation/CpuFeatures.h"
#include "stages/convert/SampleConverter.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

// The conversions that the system runs most, for each set of loops against the plain form: both
// in turns on the same frames, so that the ratio holds whatever else the machine does.

namespace velorine {
namespace {

constexpr int frames = 4608; ///< the largest slice of the output step

struct Conversion {
    const char* name;
    SampleFormat from;
    SampleFormat to;
    bool shaping;
};

constexpr SampleFormat stereo(int type, int layout = fullWidth) {
    return {type, 2, 48000, layout};
}

constexpr Conversion conversions[] = {
    {"floatTo16Dithered", stereo(sampleType::float32), stereo(sampleType::int16), false},
    {"floatTo16Shaped", stereo(sampleType::float32), stereo(sampleType::int16), true},
    {"floatTo24Dithered", stereo(sampleType::float32), stereo(sampleType::int24), false},
    {"floatTo24Shaped", stereo(sampleType::float32), stereo(sampleType::int24), true},
    {"floatTo20BitsIn24", stereo(sampleType::float32), stereo(sampleType::int24, 20), false},
    {"floatTo32Dithered", stereo(sampleType::float32), stereo(sampleType::int32), false},
    {"int32To16Dithered", stereo(sampleType::int32), stereo(sampleType::int16), false},
    {"int24To16Dithered", stereo(sampleType::int24), stereo(sampleType::int16), false},
    {"int16To32", stereo(sampleType::int16), stereo(sampleType::int32), false},
    {"int16ToFloat", stereo(sampleType::int16), stereo(sampleType::float32), false},
    {"int24ToFloat", stereo(sampleType::int24), stereo(sampleType::float32), false},
    {"doubleToFloat", stereo(sampleType::float64), stereo(sampleType::float32), false},
};

/// Two sines at half of full scale, in any format.
std::vector<std::uint8_t> music(const SampleFormat& format) {
    std::vector<float> samples;
    for (int i = 0; i < frames; ++i)
        for (const float frequency : {0.061f, 0.093f})
            samples.push_back(0.5f * std::sin(frequency * static_cast<float>(i)));
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(frames * bytesPerFrame(format)));
    SampleConverter converter;
    converter.convert({samples.data(), frames, 8}, stereo(sampleType::float32),
                      {bytes.data(), frames, bytesPerFrame(format)}, format);
    return bytes;
}

double median(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void run(benchmark::State& state, const Conversion& conversion, std::uint32_t features) {
    const std::vector<std::uint8_t> source = music(conversion.from);
    std::vector<std::uint8_t> result(
        static_cast<std::size_t>(frames * bytesPerFrame(conversion.to)));
    SampleConverter plain{0};
    SampleConverter chosen{features};
    plain.shapingOn = chosen.shapingOn = conversion.shaping;
    const auto secondsFor = [&](SampleConverter& converter) {
        const auto start = std::chrono::steady_clock::now();
        converter.convert({source.data(), frames, bytesPerFrame(conversion.from)}, conversion.from,
                          {result.data(), frames, bytesPerFrame(conversion.to)}, conversion.to);
        benchmark::ClobberMemory();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };

    std::vector<double> plainTimes;
    std::vector<double> chosenTimes;
    while (state.KeepRunning()) {
        plainTimes.push_back(secondsFor(plain));
        chosenTimes.push_back(secondsFor(chosen));
        state.SetIterationTime(chosenTimes.back());
    }
    const double plainTime = median(plainTimes);
    const double chosenTime = median(chosenTimes);
    state.counters["ns/frame"] = chosenTime * 1e9 / frames;
    state.counters["plain ns/frame"] = plainTime * 1e9 / frames;
    state.counters["times as fast"] = plainTime / chosenTime;
}

void registerAll() {
    for (const std::uint32_t features :
         {cpuFeature::avx2Fma, cpuFeature::avx2Fma | cpuFeature::avx512}) {
        if (!covers(cpuFeatures(), features)) continue;
        const std::string set = SampleConverter{features}.kernelName();
        for (const Conversion& conversion : conversions)
            benchmark::RegisterBenchmark((conversion.name + ("/" + set)).c_str(),
                                         [&conversion, features](benchmark::State& state) {
                                             run(state, conversion, features);
                                         })
                ->UseManualTime();
    }
}

} // namespace
} // namespace velorine

int main(int argc, char** argv) {
    velorine::registerAll();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
