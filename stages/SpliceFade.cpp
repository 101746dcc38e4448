#include "stages/SpliceFade.h"

#include "foundation/Rounding.h"

#include <algorithm>
#include <cmath>

namespace velorine {

int spliceGrain(int rate, double ratio) {
    const double seconds = ratio > 1.0 ? 0.058 : 0.055;
    return static_cast<int>(std::max<std::int64_t>(roundToEven(rate * seconds), 1));
}

void SpliceFade::design(int frames, double steep, double exponent) {
    if (frames == tableFrames && steep == tableSteep && exponent == tableExponent) return;
    tableFrames = frames;
    tableSteep = steep;
    tableExponent = exponent;
    fadeTable.resize(frames);
    const int step = 16777216 / frames; // in whole 2^-24: the fade ends a little before the grain
    for (int i = 0; i < frames; ++i) {
        const double place = i * step / 16777216.0;
        const double x = std::clamp((place - 0.5) * steep + 0.5, 0.0, 1.0);
        const auto weight = [&](double part) {
            return static_cast<std::uint32_t>(roundToEven(std::pow(part, exponent) * unity));
        };
        fadeTable[i] = weight(1.0 - x) | weight(x) << 16;
    }
}

} // namespace velorine
