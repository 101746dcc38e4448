#include "stages/convert/FrameAccess.h"

#include "stages/convert/SampleAccess.h"

#include <algorithm>

namespace velorine {

namespace {

template <typename Sample>
double valueAt(const std::uint8_t* frame, int channel) {
    return static_cast<double>(Sample::load(frame + channel * Sample::bytes));
}

template <typename Sample>
void readStraight(const FrameRun& from, int channels, double gain, double* to) {
    const int present = std::min(from.channels, channels);
    const std::uint8_t* frame = from.first;
    for (int i = 0; i < from.frames; ++i, frame += from.bytesPerFrame) {
        for (int c = 0; c < present; ++c)
            *to++ = valueAt<Sample>(frame, c) * gain;
        for (int c = present; c < channels; ++c)
            *to++ = 0.0;
    }
}

template <typename Sample>
void readSpread(const FrameRun& from, double gain, double* to) {
    const std::uint8_t* frame = from.first;
    for (int i = 0; i < from.frames; ++i, frame += from.bytesPerFrame) {
        const double value = valueAt<Sample>(frame, 0) * gain;
        *to++ = value;
        *to++ = value;
    }
}

template <typename Sample>
void readHalfSum(const FrameRun& from, double gain, double* to) {
    const std::uint8_t* frame = from.first;
    for (int i = 0; i < from.frames; ++i, frame += from.bytesPerFrame)
        *to++ = (valueAt<Sample>(frame, 0) + valueAt<Sample>(frame, 1)) * gain;
}

template <typename Sample>
void readAs(const FrameRun& from, ChannelMap map, int channels, double gain, double* to) {
    switch (map) {
    case ChannelMap::straight:
        return readStraight<Sample>(from, channels, gain, to);
    case ChannelMap::spread:
        return readSpread<Sample>(from, gain, to);
    case ChannelMap::halfSum:
        return readHalfSum<Sample>(from, gain, to);
    }
}

} // namespace

void readFrames(const FrameRun& from, int type, ChannelMap map, int channels, double gain,
                double* to) {
    switch (type) {
    case sampleType::int8:
        return readAs<ByteSample>(from, map, channels, gain, to);
    case sampleType::int16:
        return readAs<NumberSample<std::int16_t>>(from, map, channels, gain, to);
    case sampleType::int24:
        return readAs<ThreeByteSample>(from, map, channels, gain, to);
    case sampleType::int28:
    case sampleType::int32:
        return readAs<NumberSample<std::int32_t>>(from, map, channels, gain, to);
    case sampleType::float32:
        return readAs<NumberSample<float>>(from, map, channels, gain, to);
    case sampleType::float64:
        return readAs<NumberSample<double>>(from, map, channels, gain, to);
    default:
        break;
    }
}

void copyFrames(const FrameRun& from, int frameBytes, std::uint8_t* to, int toBytesPerFrame) {
    const auto bytes = static_cast<std::size_t>(frameBytes);
    if (from.bytesPerFrame == frameBytes && toBytesPerFrame == frameBytes) {
        std::memcpy(to, from.first, bytes * static_cast<std::size_t>(from.frames));
        return;
    }
    const std::uint8_t* frame = from.first;
    for (int i = 0; i < from.frames; ++i, frame += from.bytesPerFrame, to += toBytesPerFrame)
        std::memcpy(to, frame, bytes);
}

} // namespace velorine
