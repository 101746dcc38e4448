#include "kestrix/CurveRamp.h"

#include <algorithm>
#include <cmath>

namespace velorine {

void integrateRamp(float* bins, int count, float x0, float x1, float y0, float y1) {
    // Where outside of the curve an end lies doesn't matter, so any number may be one.
    const auto binOf = [count](float x) {
        return static_cast<int>(std::clamp(std::floor(x), -1.0F, static_cast<float>(count)));
    };
    const int i0 = binOf(x0);
    const int i1 = binOf(x1);
    if (i0 >= count || i1 < 0) return;
    if (i0 == i1) {
        bins[i0] += (x1 - x0) * (y0 + y1) * 0.5F;
        return;
    }
    const float slope = (y1 - y0) / (x1 - x0);
    if (i0 >= 0) {
        const float d = static_cast<float>(i0) + (1.0F - x0);
        bins[i0] += (d * slope + y0 + y0) * d * 0.5F;
    }
    for (int k = std::max(i0 + 1, 0); k < std::min(i1, count); ++k)
        bins[k] += (static_cast<float>(k) + 0.5F - x0) * slope + y0;
    if (i1 < count) {
        const float e = x1 - static_cast<float>(i1);
        bins[i1] += e * 0.5F * (y1 + y1 - e * slope);
    }
}

} // namespace velorine
