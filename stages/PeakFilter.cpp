#include "stages/PeakFilter.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace velorine {

namespace {

float audible(float x) {
    return std::fabs(x) < 1e-28F ? 0.0F : x;
}

} // namespace

BiquadCoefs designPeak(const PeakFilterRow& row, int rate) {
    if (!row.active) return {};
    const double frequency = std::min(static_cast<double>(row.frequency), rate * 0.5);
    const double a = std::pow(10.0, -static_cast<double>(row.gainDb) / 40.0);
    const double w = 2.0 * std::numbers::pi * frequency / rate;
    const double alpha = std::sin(w) / (2.0 * static_cast<double>(row.q) / a);
    const double p = a * alpha;
    const double q = alpha / a;
    const double den = 1.0 + q;
    BiquadCoefs coefs;
    coefs.c0 = static_cast<float>((1.0 + p) / den);
    coefs.c1 = static_cast<float>(-2.0 * std::cos(w) / den);
    coefs.c2 = static_cast<float>((1.0 - p) / den);
    coefs.c3 = static_cast<float>(2.0 * std::cos(w) / den);
    coefs.c4 = static_cast<float>(-(1.0 - q) / den);
    coefs.active = true;
    return coefs;
}

void filterPairs(const BiquadCoefs& coefs, BiquadState (&states)[2], float* pairs, int frames) {
    const BiquadCoefs c = coefs;
    BiquadState left = states[0];
    BiquadState right = states[1];
    const auto step = [&](BiquadState& s, float x) {
        const float y = c.c0 * x + c.c1 * s.x1 + c.c2 * s.x2 + c.c3 * s.y1 + c.c4 * s.y2;
        s.x2 = s.x1;
        s.x1 = x;
        s.y2 = s.y1;
        s.y1 = y;
        return y;
    };
    for (int i = 0; i < frames; ++i) {
        pairs[2 * i] = step(left, pairs[2 * i]);
        pairs[2 * i + 1] = step(right, pairs[2 * i + 1]);
    }
    for (BiquadState* const s : {&left, &right})
        *s = {audible(s->x1), audible(s->x2), audible(s->y1), audible(s->y2)};
    states[0] = left;
    states[1] = right;
}

} // namespace velorine
