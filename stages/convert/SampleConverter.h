#pragma once

#include "foundation/Memory.h"
#include "foundation/Mt19937.h"
#include "foundation/SampleFormat.h"
#include "stages/convert/NoiseShaper.h"

#include <cstdint>
#include <memory>

namespace velorine {

struct FrameRun;

/// A run of interleaved frames in memory. The stride may exceed the samples that a format names, so
/// that a conversion can pick the first channels out of wider frames.
struct FrameSpan {
    void* first = nullptr;
    int frames = 0;
    int bytesPerFrame = 0;
};

/// The same, to be read only.
struct ConstFrameSpan {
    const void* first = nullptr;
    int frames = 0;
    int bytesPerFrame = 0;

    ConstFrameSpan() = default;
    ConstFrameSpan(const void* start, int count, int stride)
        : first(start), frames(count), bytesPerFrame(stride) {}
    ConstFrameSpan(const FrameSpan& span) // NOLINT(google-explicit-constructor)
        : first(span.first), frames(span.frames), bytesPerFrame(span.bytesPerFrame) {}
};

/// Moves frames from one sample format to another: type, channel count and resolution, with
/// triangular dither and error-feedback noise shaping where resolution is lost.
///
/// There is no reset: generator, last errors and shaper history go on across blocks, seeks and
/// changes of format. One thread at a time. At most 16 channels.
class SampleConverter {
public:
    static constexpr int maxChannels = maxShapedChannels;

    SampleConverter();

    /// As on a processor with these features (`cpuFeature`) only; the results are the same.
    explicit SampleConverter(std::uint32_t features);

    /// Converts `min(source.frames, destination.frames)` frames, with as many valid bits in the
    /// result as the destination's `layout` says. The spans don't overlap.
    void convert(const ConstFrameSpan& source, const SampleFormat& sourceFormat,
                 const FrameSpan& destination, const SampleFormat& destinationFormat);

    /// The same with all bits of the destination's container valid.
    void convertFull(const ConstFrameSpan& source, const SampleFormat& sourceFormat,
                     const FrameSpan& destination, SampleFormat destinationFormat);

    /// Of the loops in use, for people.
    const char* kernelName() const { return kernels.name; }

    bool ditherOn = true;
    bool shapingOn = false;

private:
    struct Scratch;

    bool canDitherTo16(const ConversionPlan& plan, const FrameRun& from, int type,
                       const SampleFormat& destination) const;
    void ditherTo16(const std::uint8_t* from, int samples, std::uint8_t* to);
    void read(const ConversionPlan& plan, const FrameRun& from, int type, int channels,
              Scratch& scratch) const;
    void write(const ConversionPlan& plan, int type, int frames, int channels, Scratch& scratch,
               std::uint8_t* out);

    const ConvertKernels& kernels;
    Mt19937 generator;
    NoiseShaper shaper;
};

/// Owner of a converter, with the switches that its user keeps. One thread at a time.
class SampleConverterHandle {
public:
    SampleConverterHandle();

    /// As `SampleConverter`, with `noiseShaping` and `dither` copied to it first.
    void convert(const ConstFrameSpan& source, const SampleFormat& sourceFormat,
                 const FrameSpan& destination, const SampleFormat& destinationFormat);
    void convertFull(const ConstFrameSpan& source, const SampleFormat& sourceFormat,
                     const FrameSpan& destination, const SampleFormat& destinationFormat);

    bool noiseShaping = false;
    bool dither = true;

private:
    struct Destroy {
        void operator()(SampleConverter* object) const noexcept;
    };

    SampleConverter& switched();

    std::unique_ptr<SampleConverter, Destroy> converter;
};

} // namespace velorine
