#pragma once

#include "foundation/AlignedArray.h"

#include <cstdint>

namespace velorine {

/// Frames of a splice's grain: 55 ms, or 58 ms where the stream is read faster than it is heard.
int spliceGrain(int rate, double ratio);

/// Weights of a fade from one piece into the next, over one grain. One thread at a time.
class SpliceFade {
public:
    static constexpr int unity = 16384; ///< weight of a piece that is alone

    /// @param frames    of the grain, 1 or above
    /// @param steep     1: the fade takes all of the grain; more: so much less, in its middle
    /// @param exponent  of the weights' straight lines: 0.5 equal power, 1.0 equal amplitude
    void design(int frames, double steep, double exponent);

    /// One entry a frame: low half the outgoing piece's weight, high half the incoming one's.
    const std::uint32_t* weights() const { return fadeTable.data(); }

private:
    AlignedArray<std::uint32_t> fadeTable;
    int tableFrames = 0; ///< that the table was made for, as the next two
    double tableSteep = 1.0;
    double tableExponent = 0.5;
};

} // namespace velorine
