#include "stages/convert/ConvertKernels.h"

#include "foundation/Rounding.h"
#include "stages/convert/SampleAccess.h"

#include <algorithm>
#include <cmath>

namespace velorine {

namespace {

template <typename Sample>
void readSamples(const void* from, int samples, double gain, double* to) {
    const auto* sample = static_cast<const std::uint8_t*>(from);
    for (int i = 0; i < samples; ++i, sample += Sample::bytes)
        to[i] = static_cast<double>(Sample::load(sample)) * gain;
}

void quantiseSamples(const double* x, const double* dither, int samples, const WordLimits& limits,
                     std::int32_t* to) {
    for (int i = 0; i < samples; ++i) {
        const double value = std::isnan(x[i]) ? 0.0 : x[i];
        // The limits are whole numbers: to hold the value to them first rounds to the same.
        const double held = std::clamp(value + dither[i], limits.low, limits.high);
        const auto q = static_cast<std::int32_t>(roundToEven(held));
        to[i] = q > limits.top ? limits.cap : q << limits.shift;
    }
}

template <typename Sample, typename Value>
void writeSamples(const Value* from, int samples, void* to) {
    using Stored = decltype(Sample::load(nullptr));
    auto* sample = static_cast<std::uint8_t*>(to);
    for (int i = 0; i < samples; ++i, sample += Sample::bytes)
        Sample::store(sample, static_cast<Stored>(from[i]));
}

using Sample16 = NumberSample<std::int16_t>;
using Sample32 = NumberSample<std::int32_t>;
using SampleFloat = NumberSample<float>;
using SampleDouble = NumberSample<double>;

} // namespace

const ConvertKernels plainConvertKernels = {
    .read = {readSamples<ByteSample>, readSamples<Sample16>, readSamples<ThreeByteSample>,
             readSamples<Sample32>, readSamples<Sample32>, readSamples<SampleFloat>,
             readSamples<SampleDouble>},
    .quantise = quantiseSamples,
    .writeWords = {writeSamples<ByteSample, std::int32_t>, writeSamples<Sample16, std::int32_t>,
                   writeSamples<ThreeByteSample, std::int32_t>,
                   writeSamples<Sample32, std::int32_t>, writeSamples<Sample32, std::int32_t>},
    .writeFloats = {writeSamples<SampleFloat, double>, writeSamples<SampleDouble, double>},
    .ditherTo16 = nullptr,
    .refillAndDitherTo16 = nullptr,
    .shapePair = nullptr,
    .name = "plain",
};

} // namespace velorine
