#include "kestrix/HannWindow.h"

#include <cmath>
#include <numbers>

namespace velorine {

double hann(double t) {
    if (!(t > 0.0) || t >= 1.0) return 0.0;
    return 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * t);
}

} // namespace velorine
