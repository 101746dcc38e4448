#include "kestrix/KestrixKernels.h"
#include "kestrix/SoftClip.h"

#include <algorithm>
#include <cmath>

namespace velorine {

namespace {

void windowPairs(const float* from, const float* window, int pairs, float* to) {
    for (int i = 0; i < pairs; ++i) {
        to[2 * i] = from[2 * i] * window[i];
        to[2 * i + 1] = from[2 * i + 1] * window[i];
    }
}

void measureBins(const float* spectrum, int length, float* energy, float* difference) {
    energy[0] = difference[0] = 0.0F;
    for (int k = 1; k < length / 2; ++k) {
        const auto aRe = static_cast<double>(spectrum[2 * k]);
        const auto aIm = static_cast<double>(spectrum[2 * k + 1]);
        const auto bRe = static_cast<double>(spectrum[2 * (length - k)]);
        const auto bIm = static_cast<double>(spectrum[2 * (length - k) + 1]);
        const double p = (aRe + bRe) * 0.5; // left
        const double s = (aIm - bIm) * 0.5;
        const double r = (aIm + bIm) * 0.5; // right
        const double q = (bRe - aRe) * 0.5;
        const double left = 2.0 * (s * s + p * p);
        const double right = 2.0 * (q * q + r * r);
        energy[k] = static_cast<float>(left + right);
        difference[k] = static_cast<float>(std::abs(left - right));
    }
}

void weightedSums(const float* weight, const float* a, const float* b, int count, double sums[2]) {
    sums[0] = sums[1] = 0.0;
    for (int i = 0; i < count; ++i) {
        sums[0] += static_cast<double>(weight[i]) * static_cast<double>(a[i]);
        sums[1] += static_cast<double>(weight[i]) * static_cast<double>(b[i]);
    }
}

void addScaled(const float* from, float gain, int count, float* sum) {
    for (int i = 0; i < count; ++i)
        sum[i] += from[i] * gain;
}

void addTo(const float* from, int count, float* sum) {
    for (int i = 0; i < count; ++i)
        sum[i] += from[i];
}

void applyResponse(float* spectrum, const float* response, int length) {
    const auto multiply = [&](int bin, float re, float im) {
        float* const x = spectrum + 2 * bin;
        const float product = x[0] * re - x[1] * im;
        x[1] = x[0] * im + x[1] * re;
        x[0] = product;
    };
    for (int k = 0; k <= length / 2; ++k)
        multiply(k, response[2 * k], response[2 * k + 1]);
    for (int k = 1; k < length / 2; ++k)
        multiply(length - k, response[2 * k], -response[2 * k + 1]);
}

void clipPairs(const float* from, int pairs, float* to) {
    for (int i = 0; i < pairs; ++i) {
        const float left = from[2 * i];
        const float right = from[2 * i + 1];
        const auto peak = static_cast<double>(std::max(std::abs(left), std::abs(right)));
        const double out = softClipSample(peak);
        const auto factor = static_cast<float>(peak != 0.0 ? out / peak : out);
        to[2 * i] = left * factor;
        to[2 * i + 1] = right * factor;
    }
}

} // namespace

const KestrixKernels plainKestrixKernels = {
    windowPairs, measureBins, weightedSums, addScaled, addTo, applyResponse, clipPairs, 0, "plain"};

} // namespace velorine
