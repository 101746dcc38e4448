#include "stages/convert/ConversionPlan.h"

#include <algorithm>
#include <cmath>

namespace velorine {

namespace {

constexpr double plainPeak = 1.0;    ///< largest dither draw, in valid LSBs
constexpr double shapedPeak = 21.32; ///< shaped noise: the sum of the taps' magnitudes, and dither

bool isKnown(int type) {
    return type >= sampleType::int8 && type <= sampleType::float64;
}

/// Bits that the value at full scale takes: 24 for type 3, whose other 8 are headroom.
int scaleBits(int type) {
    return type == sampleType::int28 ? 24 : bitsPerSample(type);
}

double fullScale(int type) {
    return isFloatType(type) ? 1.0 : std::ldexp(1.0, scaleBits(type) - 1);
}

ChannelMap mapChannels(int source, int destination) {
    if (source == 1 && destination == 2) return ChannelMap::spread;
    if (source == 2 && destination == 1) return ChannelMap::halfSum;
    return ChannelMap::straight;
}

bool isCopy(const SampleFormat& source, const SampleFormat& destination) {
    return source.type == destination.type && source.channels == destination.channels &&
           source.rate == destination.rate && destination.layout >= bitsPerSample(destination.type);
}

/// Whether dither or shaped noise on top of a full-scale source could clip.
bool needsHeadroom(const SampleFormat& source, const SampleFormat& destination, int effBits) {
    if (isFloatType(source.type)) return true;
    const bool mixes = destination.channels < source.channels; // two samples take one bit more
    return bitsPerSample(source.type) + (mixes ? 1 : 0) > effBits;
}

double headroomScale(int sourceType, int effBits, double peak) {
    const double m = std::ldexp(1.0, effBits - 1) - 1.0;
    const double s = std::max(0.0, m + 0.5 - peak) / (m + 1.0);
    if (isFloatType(sourceType)) return s;
    if (sourceType == sampleType::int28) return s * (1.0 - 0x1p-31);

    const double n = std::ldexp(1.0, bitsPerSample(sourceType) - 1) - 1.0;
    return s * (n + 1.0) / n;
}

} // namespace

ConversionPlan planConversion(const SampleFormat& source, const SampleFormat& destination,
                              bool ditherOn, bool shapingOn) {
    using Way = ConversionPlan::Way;
    ConversionPlan plan;
    if (isCopy(source, destination)) {
        plan.way = Way::copy;
        return plan;
    }
    if (!isKnown(source.type) || !isKnown(destination.type)) return plan;

    plan.map = mapChannels(source.channels, destination.channels);
    const double parts = plan.map == ChannelMap::halfSum ? 2.0 : 1.0;
    if (isFloatType(destination.type)) {
        plan.way = Way::cast;
        plan.gain = 1.0 / fullScale(source.type) / parts;
        return plan;
    }

    const int bits = bitsPerSample(destination.type);
    plan.shift = std::clamp(bits - destination.layout, 0, bits - 1);
    if (destination.type != sampleType::int28) {
        const int effBits = std::max(bits - plan.shift, 5);
        const double peak = shapingOn ? shapedPeak : plainPeak;
        if (ditherOn && needsHeadroom(source, destination, effBits))
            plan.scale = headroomScale(source.type, effBits, peak);
    } else if (shapingOn) {
        return plan; // type 3 carries overshoots within the chain and is never shaped
    }

    // Left-over low bits take the loop with feedback for its order of shift and limit.
    const bool limitsLast = shapingOn || plan.shift > 0;
    const bool shapes = limitsLast && destination.type != sampleType::int28 &&
                        destination.channels <= maxShapedChannels;
    plan.way = shapes ? Way::shape : Way::quantise;
    plan.shaperActive = shapingOn;

    double ratio = fullScale(destination.type) / fullScale(source.type);
    const int addedBits = scaleBits(destination.type) - scaleBits(source.type);
    if (!isFloatType(source.type) && addedBits > 0) {
        if (plan.shift <= addedBits) {
            plan.way = Way::exact;
            plan.gain = ratio / parts;
            return plan;
        }
        // Fewer valid bits than the source has, in a wider container: such a block is deliberately
        // almost silent, its factor being 2 to the power of the added bits' complement.
        if (shapes) ratio = std::ldexp(1.0, -(-addedBits & 31));
    }
    plan.gain = ratio / parts / std::ldexp(1.0, plan.shift) * plan.scale;
    return plan;
}

} // namespace velorine
