#include "tests/convert/ReferenceConverter.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace velorine {

namespace {

/// Taps of the shaper, from the oldest error, 30 samples back, to the newest.
constexpr std::array<int, 30> taps = {
    0,   0,    0,   -4,   1,    -3,   -18,   22,   -44, 4,     40,    -165,   196,   -173,   -97,
    457, -908, 813, -260, -976, 2474, -3579, 2358, 472, -5040, 10836, -15449, 15397, -13617, 9807};

constexpr std::array<int, 7> nominalBits = {8, 16, 24, 28, 32, 32, 64};
constexpr std::array<int, 7> scaleBits = {8, 16, 24, 24, 32, 0, 0};
constexpr std::array<int, 7> containerBytes = {1, 2, 3, 4, 4, 4, 8};

bool isFloat(int type) {
    return type == 5 || type == 6;
}

double fullScale(int type) {
    return isFloat(type) ? 1.0 : std::pow(2.0, scaleBits[static_cast<std::size_t>(type)] - 1);
}

int bits(int type) {
    return nominalBits[static_cast<std::size_t>(type)];
}

std::int64_t readLittleEndian(const std::uint8_t* bytes, int count) {
    std::int64_t value = 0;
    for (int i = count - 1; i >= 0; --i)
        value = value * 256 + bytes[i];
    const std::int64_t half = std::int64_t{1} << (8 * count - 1);
    return value >= half ? value - 2 * half : value;
}

} // namespace

double ReferenceConverter::valueOf(const std::uint8_t* bytes, int type) {
    if (type == 0) return bytes[0] - 128.0;
    if (type == 5) {
        float value = 0.0f;
        std::memcpy(&value, bytes, sizeof value);
        return static_cast<double>(value);
    }
    if (type == 6) {
        double value = 0.0;
        std::memcpy(&value, bytes, sizeof value);
        return value;
    }
    return static_cast<double>(
        readLittleEndian(bytes, containerBytes[static_cast<std::size_t>(type)]));
}

void ReferenceConverter::storeInteger(std::uint8_t* bytes, int type, std::int64_t value) {
    if (type == 0) value += 128;
    for (int i = 0; i < containerBytes[static_cast<std::size_t>(type)]; ++i)
        bytes[i] = static_cast<std::uint8_t>((value >> (8 * i)) & 0xff);
}

struct ReferenceConverter::Setup {
    bool shaperActive = true;
    bool shapedLoop = false;
    bool exact = false;
    bool exists = true;
    int shift = 0;
    int containerBits = 0;
    double fs = 1.0;
    double scale = 1.0;
    int addedBits = 0;
};

ReferenceConverter::Setup ReferenceConverter::setUp(const SampleFormat& source,
                                                    const SampleFormat& destination, bool ditherOn,
                                                    bool shapingOn) {
    Setup setup;
    const int dst = destination.type;
    setup.containerBits = 8 * containerBytes[static_cast<std::size_t>(dst)];
    setup.shift = std::max(0, bits(dst) - destination.layout);
    setup.fs = fullScale(dst) / fullScale(source.type);
    setup.shapedLoop = shapingOn;
    if (isFloat(dst)) return setup;

    const int effBits = std::max(5, bits(dst) - setup.shift);
    if (dst != 3) {
        bool reduce = true;
        if (!isFloat(source.type)) {
            if (destination.channels < source.channels && bits(source.type) + 1 <= effBits)
                reduce = false;
            if (destination.channels >= source.channels && bits(source.type) <= effBits)
                reduce = false;
        }
        if (!ditherOn) reduce = false;
        if (reduce) {
            const double peak = shapingOn ? 21.32 : 1.0;
            const double m = std::pow(2.0, effBits - 1) - 1.0;
            const double s = std::max(0.0, m + 0.5 - peak) / (m + 1.0);
            setup.scale = s;
            if (source.type == 3) setup.scale = s * 0.9999999995343387;
            if (source.type == 0) setup.scale = s * 128.0 / 127.0;
            if (source.type == 1) setup.scale = s * 32768.0 / 32767.0;
            if (source.type == 2) setup.scale = s * 8388608.0 / 8388607.0;
            if (source.type == 4) setup.scale = s * 2147483648.0 / 2147483647.0;
        }
        if (!shapingOn && setup.shift > 0) {
            setup.shapedLoop = true;
            setup.shaperActive = false;
        }
    }
    setup.exists = dst != 3 || !shapingOn;

    if (!isFloat(source.type)) {
        const int from = scaleBits[static_cast<std::size_t>(source.type)];
        const int to = scaleBits[static_cast<std::size_t>(dst)];
        setup.addedBits = to - from;
        setup.exact = from < to && setup.shift <= setup.addedBits;
        if (from < to && setup.shift > setup.addedBits && dst != 3)
            setup.fs = std::pow(2.0, -((from - to + 32) % 32));
    }
    return setup;
}

double ReferenceConverter::shaped(double x, std::size_t channel) {
    std::vector<std::int16_t>& history = errors[channel];
    const double error = static_cast<double>(lastError[channel]);
    history.push_back(static_cast<std::int16_t>(std::llrint(error * 16384.0)));
    std::int64_t sum = 0;
    for (std::size_t back = 1; back <= std::min<std::size_t>(30, history.size()); ++back)
        sum += history[history.size() - back] * taps[30 - back];
    return x + static_cast<double>(sum) * std::pow(2.0, -26);
}

std::int64_t ReferenceConverter::quantise(const Setup& setup, double x, std::size_t channel) {
    if (setup.shapedLoop && setup.shaperActive) x = shaped(x, channel);
    double d = 0.0;
    if (ditherOn) {
        d = draw();
        d -= draw();
    }
    std::int64_t q = std::llrint(x + d);
    const std::int64_t unit = std::int64_t{1} << setup.shift;
    const std::int64_t full = std::int64_t{1} << (setup.containerBits - 1);
    if (setup.shapedLoop) {
        lastError[channel] = static_cast<float>(x - static_cast<double>(q));
        return std::clamp(q * unit, -full, full - 1);
    }
    const std::int64_t reduced = full / unit;
    return std::clamp(q, -reduced, reduced - 1) * unit;
}

std::vector<std::uint8_t> ReferenceConverter::convert(const std::vector<std::uint8_t>& source,
                                                      const SampleFormat& sourceFormat,
                                                      const SampleFormat& destinationFormat,
                                                      int frames) {
    const int src = sourceFormat.type;
    const int dst = destinationFormat.type;
    const int in = sourceFormat.channels;
    const int out = destinationFormat.channels;
    const int inBytes = containerBytes[static_cast<std::size_t>(src)];
    const int outBytes = containerBytes[static_cast<std::size_t>(dst)];
    if (src == dst && in == out && sourceFormat.rate == destinationFormat.rate &&
        destinationFormat.layout >= bits(dst))
        return source;

    std::vector<std::uint8_t> result(static_cast<std::size_t>(frames * out * outBytes), unwritten);
    const Setup setup = setUp(sourceFormat, destinationFormat, ditherOn, shapingOn);
    if (!setup.exists) return result;

    for (int frame = 0; frame < frames; ++frame) {
        for (int channel = 0; channel < out; ++channel) {
            const std::uint8_t* from = source.data() + frame * in * inBytes;
            std::uint8_t* to = result.data() + (frame * out + channel) * outBytes;
            double value = 0.0;
            double parts = 1.0;
            if (in == 2 && out == 1) {
                value = valueOf(from, src) + valueOf(from + inBytes, src);
                parts = 2.0;
            } else if (in == 1 && out == 2) {
                value = valueOf(from, src);
            } else if (channel < in) {
                value = valueOf(from + channel * inBytes, src);
            }

            if (dst == 5) {
                const auto stored = static_cast<float>(value * (setup.fs / parts));
                std::memcpy(to, &stored, sizeof stored);
            } else if (dst == 6) {
                const double stored = value * (setup.fs / parts);
                std::memcpy(to, &stored, sizeof stored);
            } else if (setup.exact) {
                const auto full = std::pow(2.0, setup.containerBits - 1);
                const double wide = value * std::pow(2.0, setup.addedBits) / parts;
                storeInteger(to, dst,
                             static_cast<std::int64_t>(std::clamp(wide, -full, full - 1.0)));
            } else {
                const double x =
                    value * (setup.fs / parts) / std::pow(2.0, setup.shift) * setup.scale;
                storeInteger(to, dst, quantise(setup, x, static_cast<std::size_t>(channel)));
            }
        }
    }
    return result;
}

} // namespace velorine
