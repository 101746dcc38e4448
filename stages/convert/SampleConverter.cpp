#include "stages/convert/SampleConverter.h"

#include "foundation/CpuFeatures.h"
#include "stages/convert/FrameAccess.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <span>

namespace velorine {

namespace {

/// Samples in a pass: with their dither they stay in the first-level cache.
constexpr int passSamples = 512;

constexpr int widestFrame = passSamples / 4; ///< channels; beyond, nothing is converted

/// Frames in a pass, a multiple of four as the shaper wants it.
int passFrames(int channels) {
    return std::max(4, passSamples / channels / 4 * 4);
}

/// Whether source samples can be read side by side, and be taken over one by one.
bool isOneRun(const ConversionPlan& plan, const FrameRun& from, int type, int channels) {
    return plan.map == ChannelMap::straight && from.channels == channels &&
           from.bytesPerFrame == bytesPerSample(type) * channels;
}

WordLimits limitsOf(const ConversionPlan& plan, int type) {
    const int bits = 8 * bytesPerSample(type);
    const int shift = plan.way == ConversionPlan::Way::exact ? 0 : plan.shift;
    const double span = std::ldexp(1.0, bits - 1 - shift);
    const bool shiftsFirst = plan.way == ConversionPlan::Way::shape && shift > 0;
    return {.low = -span,
            .high = shiftsFirst ? span : span - 1.0,
            .top = static_cast<std::int32_t>(span - 1.0),
            .cap = static_cast<std::int32_t>(std::ldexp(1.0, bits - 1) - 1.0),
            .shift = shift};
}

} // namespace

struct SampleConverter::Scratch {
    alignas(32) std::array<double, passSamples> x;
    alignas(32) std::array<double, passSamples> dither;
    alignas(32) std::array<std::int32_t, passSamples> words;
    alignas(32) std::array<std::uint8_t, passSamples * sizeof(double)> bytes;
};

SampleConverter::SampleConverter() : SampleConverter(cpuFeatures()) {}

SampleConverter::SampleConverter(std::uint32_t features)
    : kernels(convertKernels(features & cpuFeatures())) {
    generator.useKernels(features);
}

void SampleConverter::convertFull(const ConstFrameSpan& source, const SampleFormat& sourceFormat,
                                  const FrameSpan& destination, SampleFormat destinationFormat) {
    destinationFormat.layout = fullWidth;
    convert(source, sourceFormat, destination, destinationFormat);
}

void SampleConverter::convert(const ConstFrameSpan& source, const SampleFormat& sourceFormat,
                              const FrameSpan& destination, const SampleFormat& destinationFormat) {
    const ConversionPlan plan =
        planConversion(sourceFormat, destinationFormat, ditherOn, shapingOn);
    FrameRun from{.first = static_cast<const std::uint8_t*>(source.first),
                  .frames = std::min(source.frames, destination.frames),
                  .bytesPerFrame = source.bytesPerFrame,
                  .channels = sourceFormat.channels};
    auto* to = static_cast<std::uint8_t*>(destination.first);
    if (from.frames <= 0 || plan.way == ConversionPlan::Way::nothing) return;

    const int frameBytes = bytesPerFrame(destinationFormat);
    if (plan.way == ConversionPlan::Way::copy)
        return copyFrames(from, frameBytes, to, destination.bytesPerFrame);

    const int channels = destinationFormat.channels;
    if (channels <= 0 || channels > widestFrame) return;

    const bool isTight = destination.bytesPerFrame == frameBytes;
    if (isTight && canDitherTo16(plan, from, sourceFormat.type, destinationFormat))
        return ditherTo16(from.first, from.frames * channels, to);

    Scratch scratch;
    for (int rest = from.frames; rest > 0; rest -= from.frames) {
        from.frames = std::min(rest, passFrames(channels));
        read(plan, from, sourceFormat.type, channels, scratch);

        std::uint8_t* const out = isTight ? to : scratch.bytes.data();
        write(plan, destinationFormat.type, from.frames, channels, scratch, out);
        if (!isTight)
            copyFrames({out, from.frames, frameBytes, channels}, frameBytes, to,
                       destination.bytesPerFrame);

        from.first += static_cast<std::ptrdiff_t>(from.frames) * from.bytesPerFrame;
        to += static_cast<std::ptrdiff_t>(from.frames) * destination.bytesPerFrame;
    }
}

bool SampleConverter::canDitherTo16(const ConversionPlan& plan, const FrameRun& from, int type,
                                    const SampleFormat& destination) const {
    constexpr double gain = 32766.5;
    return kernels.ditherTo16 != nullptr && type == sampleType::float32 &&
           destination.type == sampleType::int16 && plan.way == ConversionPlan::Way::quantise &&
           plan.gain == gain && isOneRun(plan, from, type, destination.channels);
}

void SampleConverter::ditherTo16(const std::uint8_t* from, int samples, std::uint8_t* to) {
    constexpr int generation = Mt19937::stateWords / 2; // samples
    for (int count = 0; samples > 0; samples -= count, from += 4 * count, to += 2 * count) {
        std::uint32_t* const spent = generator.spent();
        if (spent != nullptr && samples >= generation) {
            count = generation;
            kernels.refillAndDitherTo16(spent, from, to);
        } else {
            int words = 0;
            const std::uint32_t* const pending = generator.pending(&words);
            count = std::min(samples, words / 2);
            kernels.ditherTo16(from, pending, count, to);
            generator.skip(2 * count);
        }
    }
}

void SampleConverter::read(const ConversionPlan& plan, const FrameRun& from, int type, int channels,
                           Scratch& scratch) const {
    if (isOneRun(plan, from, type, channels))
        kernels.read[type](from.first, from.frames * channels, plan.gain, scratch.x.data());
    else
        readFrames(from, type, plan.map, channels, plan.gain, scratch.x.data());
}

void SampleConverter::write(const ConversionPlan& plan, int type, int frames, int channels,
                            Scratch& scratch, std::uint8_t* out) {
    const int samples = frames * channels;
    if (plan.way == ConversionPlan::Way::cast) {
        kernels.writeFloats[type - sampleType::float32](scratch.x.data(), samples, out);
        return;
    }

    const std::span dither{scratch.dither.data(), static_cast<std::size_t>(samples)};
    if (ditherOn && plan.way != ConversionPlan::Way::exact)
        generator.triangular(dither);
    else
        std::ranges::fill(dither, 0.0);

    const WordLimits limits = limitsOf(plan, type);
    if (plan.way == ConversionPlan::Way::shape) {
        shaper.shaperActive = plan.shaperActive;
        shaper.shape(kernels,
                     {.x = scratch.x.data(),
                      .dither = dither.data(),
                      .to = scratch.words.data(),
                      .frames = frames,
                      .channels = channels},
                     limits);
    } else {
        kernels.quantise(scratch.x.data(), dither.data(), samples, limits, scratch.words.data());
    }
    kernels.writeWords[type](scratch.words.data(), samples, out);
}

SampleConverterHandle::SampleConverterHandle() {
    void* const room = memAlloc(sizeof(SampleConverter));
    converter.reset(new (room) SampleConverter);
}

void SampleConverterHandle::Destroy::operator()(SampleConverter* object) const noexcept {
    object->~SampleConverter();
    memFree(object);
}

SampleConverter& SampleConverterHandle::switched() {
    converter->shapingOn = noiseShaping;
    converter->ditherOn = dither;
    return *converter;
}

void SampleConverterHandle::convert(const ConstFrameSpan& source, const SampleFormat& sourceFormat,
                                    const FrameSpan& destination,
                                    const SampleFormat& destinationFormat) {
    switched().convert(source, sourceFormat, destination, destinationFormat);
}

void SampleConverterHandle::convertFull(const ConstFrameSpan& source,
                                        const SampleFormat& sourceFormat,
                                        const FrameSpan& destination,
                                        const SampleFormat& destinationFormat) {
    switched().convertFull(source, sourceFormat, destination, destinationFormat);
}

} // namespace velorine
