#pragma once

#include <cassert>

namespace velorine {

/// Length of an analysis frame and the least length of the filters' room beside it.
inline constexpr double frameMs = 45.0;
inline constexpr double padMs = 40.0;

/// How the processor cuts the stream, in frames of the stream.
struct FrameSizes {
    int frameLen = 0; ///< analysis frame, a multiple of 4
    int padLen = 0;   ///< room beside it in the transform: the filters' length
    int fftLen = 0;   ///< a power of two

    int hop() const noexcept { return frameLen / 2; }

    /// Input before a frame that still reaches its output, in whole hops.
    int warmUp() const noexcept {
        assert(hop() > 0);
        return (fftLen - 1 + hop()) / hop() * hop();
    }

    friend bool operator==(const FrameSizes&, const FrameSizes&) = default;
};

/// @param rate  Hz; rates that no converter has are taken as the nearest that one could
FrameSizes computeFrameSizes(float rate);

} // namespace velorine
