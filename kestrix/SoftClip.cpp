#include "kestrix/SoftClip.h"

#include <cmath>

namespace velorine {

double softClipSample(double x) {
    if (x * x < 1e-9) return x;
    const double v = 20.0 * std::log10(x * x); // twice the level, in dB
    if (v <= -6.0) return x;
    const double t = (v + 6.0) / 6.0;
    const double h = 0.5 * t;
    const double y = h < 1.0 ? t - h * h : 1.0;
    const long double a = std::pow(10.0L, static_cast<long double>(v) / 20.0L);
    const long double b = std::pow(10.0L, static_cast<long double>(-6.0 + 6.0 * y) / 20.0L);
    return static_cast<double>(std::sqrt(b) / std::sqrt(a) * static_cast<long double>(x));
}

} // namespace velorine
