#include "kestrix/FrameSizes.h"

#include "foundation/Rounding.h"

#include <algorithm>
#include <cmath>

namespace velorine {

namespace {

/// A host that names a rate of 1 Hz or 1 GHz still gets frames that can be computed.
constexpr double lowestRate = 100.0;
constexpr double highestRate = 3'072'000.0;

int fourFold(double frames) {
    return static_cast<int>(roundToEven(frames)) & ~3;
}

} // namespace

FrameSizes computeFrameSizes(float rate) {
    const double hz = std::isfinite(rate)
                          ? std::clamp(static_cast<double>(rate), lowestRate, highestRate)
                          : highestRate;
    FrameSizes sizes;
    sizes.frameLen = fourFold(frameMs * hz / 1000.0);
    const int pad = fourFold(padMs * hz / 1000.0);
    // The small term keeps a sum that is a power of two at that power.
    const double octaves = std::log(static_cast<double>(sizes.frameLen + pad)) / std::log(2.0);
    sizes.fftLen = 1 << static_cast<int>(std::ceil(octaves - 1e-7));
    sizes.padLen = sizes.fftLen - sizes.frameLen;
    return sizes;
}

} // namespace velorine
