#pragma once

#include "foundation/SampleFormat.h"

namespace velorine {

/// How the channels of a frame find their places in another.
enum class ChannelMap {
    straight, ///< by number: channels beyond the destination's are dropped, missing ones are 0
    spread,   ///< one to both of two
    halfSum,  ///< two to one, at half their sum
};

/// What one conversion does to every sample, worked out before the first.
struct ConversionPlan {
    enum class Way {
        nothing,  ///< no conversion exists: the destination stays as it is
        copy,     ///< as bytes
        cast,     ///< to float, by the gain alone
        exact,    ///< integer to wider integer, by the gain alone
        quantise, ///< dither and round; limit to the valid bits, then shift
        shape,    ///< dither and round, with the error fed back; shift, then limit to the container
    };

    Way way = Way::nothing;
    ChannelMap map = ChannelMap::straight;
    bool shaperActive = true; ///< `shape` only: the error filter runs
    double scale = 1.0;       ///< headroom: full scale plus dither, or shaped noise, can't clip
    int shift = 0;            ///< unused low bits of the result
    double gain = 1.0;        ///< source value, or sum of two, to valid LSBs; includes `scale`
};

/// Shaped loops know as many channels; wider frames are quantised without feedback.
inline constexpr int maxShapedChannels = 16;

/// The plan for a pair of formats and the two switches. Any thread.
ConversionPlan planConversion(const SampleFormat& source, const SampleFormat& destination,
                              bool ditherOn, bool shapingOn);

} // namespace velorine
