#include "stages/QuadMix.h"

#include <cassert>
#include <cstdint>

namespace velorine {

namespace {

template <typename Sample, typename Wide>
struct Integers {
    using Stored = Sample;
    static Sample inverted(Sample x) { return static_cast<Sample>(~x); }
    static Sample mean(Sample a, Sample b) {
        return static_cast<Sample>((static_cast<Wide>(a) + static_cast<Wide>(b)) >> 1);
    }
};

struct Packed24 {
    std::uint8_t bytes[3];
};

struct Integers24 {
    using Stored = Packed24;
    static Packed24 inverted(const Packed24& x) {
        return {{static_cast<std::uint8_t>(~x.bytes[0]), static_cast<std::uint8_t>(~x.bytes[1]),
                 static_cast<std::uint8_t>(~x.bytes[2])}};
    }
    static std::int32_t wide(const Packed24& x) {
        return static_cast<std::int8_t>(x.bytes[2]) * 65536 + x.bytes[1] * 256 + x.bytes[0];
    }
    static Packed24 mean(const Packed24& a, const Packed24& b) {
        const std::int32_t sum = (wide(a) + wide(b)) >> 1;
        return {{static_cast<std::uint8_t>(sum), static_cast<std::uint8_t>(sum >> 8),
                 static_cast<std::uint8_t>(sum >> 16)}};
    }
};

struct Floats {
    using Stored = float;
    static float inverted(float x) { return -x; }
    static float mean(float a, float b) {
        return static_cast<float>((static_cast<double>(a) + static_cast<double>(b)) / 2.0);
    }
};

template <typename Samples, int channels>
void mixFrames(const void* frontFrames, const void* rearFrames, int frames,
               const QuadSwitches& switches, void* out) {
    using Sample = typename Samples::Stored;
    const auto* front = static_cast<const Sample*>(frontFrames);
    const auto* rear = static_cast<const Sample*>(rearFrames);
    auto* to = static_cast<Sample*>(out);
    const auto rearSample = [&](Sample x) {
        if (switches.invertRear) x = Samples::inverted(x);
        return switches.rearOn ? x : Sample{};
    };
    for (int i = 0; i < frames; ++i, front += channels, rear += channels, to += 4) {
        to[0] = switches.frontOn ? front[0] : Sample{};
        to[1] = switches.frontOn ? front[channels - 1] : Sample{};
        Sample behind = rearSample(rear[0]);
        if constexpr (channels == 2) behind = Samples::mean(behind, rearSample(rear[1]));
        to[2] = to[3] = behind;
    }
}

template <typename Samples>
void mixType(int channels, const void* front, const void* rear, int frames,
             const QuadSwitches& switches, void* out) {
    if (channels == 1)
        mixFrames<Samples, 1>(front, rear, frames, switches, out);
    else
        mixFrames<Samples, 2>(front, rear, frames, switches, out);
}

} // namespace

void mixQuad(const SampleFormat& source, const void* front, const void* rear, int frames,
             const QuadSwitches& switches, void* out) {
    assert(canMixQuad(source));
    switch (source.type) {
    case sampleType::int16:
        return mixType<Integers<std::int16_t, std::int32_t>>(source.channels, front, rear, frames,
                                                             switches, out);
    case sampleType::int24:
        return mixType<Integers24>(source.channels, front, rear, frames, switches, out);
    case sampleType::float32:
        return mixType<Floats>(source.channels, front, rear, frames, switches, out);
    default:
        return mixType<Integers<std::int32_t, std::int64_t>>(source.channels, front, rear, frames,
                                                             switches, out);
    }
}

} // namespace velorine
