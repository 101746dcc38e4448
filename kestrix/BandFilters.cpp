#include "kestrix/BandFilters.h"

#include "kestrix/CurveRamp.h"
#include "kestrix/HannWindow.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace velorine {

namespace {

/// Frequencies of the curve's nodes from the third on, with two more on each side, so that the
/// curve is flat below the first node and above the last.
constexpr float freqTable[eqNodes + 4] = {
    0,    0,    20,   35,   50,   60,   75,   100,   135,   180,   250,   375,    500,   750,
    1000, 1500, 2000, 3000, 4000, 6000, 8000, 12000, 15000, 18000, 20000, 192000, 192001};

/// Above all audio: where the highest band ends.
constexpr float topOfLastBand = 192000.0F;

double delayOf(const KestrixParameters& parameters, int node) {
    const double delay = parameters.del[node / 2];
    return node % 2 == 0 ? delay : (delay + parameters.del[node / 2 + 1]) * 0.5;
}

} // namespace

void BandFilters::rebuild(const KestrixParameters& parameters, float rate,
                          const FrameSizes& newSizes) {
    const FftPlannerUse planning;
    const int n = newSizes.fftLen;
    const bool resized = n != sizes.fftLen;
    if (resized) {
        timeBuf.resize(n);
        scratch.resize(n);
        timeWindow.resize(n);
        eqCurve.resize(n / 2 + 2);
        delayCurve.resize(n / 2 + 2);
        for (int b = 0; b < kestrixBands; ++b) {
            bandSpec[b].resize(n);
            bandWeight[b].resize(n / 2 + 2);
        }
    }
    if (!(newSizes == sizes)) {
        const int halfPad = std::max(newSizes.padLen / 2, 1);
        for (int i = 0; i < n; ++i) {
            const int j = i < n / 2 ? i : i - n;
            timeWindow[i] = static_cast<float>(hann(static_cast<double>(j) / halfPad * 0.5 + 0.5));
        }
    }
    sizes = newSizes;
    c2rPlan.planToReal(n, bandSpec[0].data(), timeBuf.data());
    FftPlan toSpectrum;
    toSpectrum.planComplex(n, scratch.data(), bandSpec[0].data(), FftDirection::forward);

    float binsPerHz = rate == 0.0F ? static_cast<float>(n) : static_cast<float>(n) / rate;
    if (binsPerHz == 0.0F) binsPerHz = 1.0F;
    amount = parameters.magnitude * parameters.magnitudeScale;
    splitBands(parameters, binsPerHz);
    drawCurves(parameters, binsPerHz);
    drawResponse(parameters, rate, binsPerHz);
    for (int b = 0; b < kestrixBands; ++b) {
        limitInTime(b, toSpectrum);
        bins[b] = audibleBins(b);
    }
    forwardPlan.planComplex(n, bandSpec[0].data(), scratch.data(), FftDirection::forward);
    inversePlan.planComplex(n, bandSpec[0].data(), scratch.data(), FftDirection::backward);
    scaleWeights();
}

/// Weights that cross linearly from one band's upper edge to the next one's lower edge.
void BandFilters::splitBands(const KestrixParameters& parameters, float binsPerHz) {
    const int count = sizes.fftLen / 2 + 1;
    const auto scaled = [&](double hz) { return static_cast<float>(hz) * binsPerHz; };
    for (int b = 0; b < kestrixBands; ++b) {
        float* const weight = bandWeight[b].data();
        std::fill_n(weight, count, 0.0F);
        const bool first = b == 0;
        const bool last = b == kestrixBands - 1;
        const float before = first ? 0.0F : scaled(parameters.band[b - 1].high);
        const float low = first ? 0.0F : scaled(parameters.band[b].low);
        const float high = last ? topOfLastBand * binsPerHz : scaled(parameters.band[b].high);
        const float after = last ? topOfLastBand * binsPerHz : scaled(parameters.band[b + 1].low);
        integrateRamp(weight, count, before, low, 0.0F, 1.0F);
        integrateRamp(weight, count, low, high, 1.0F, 1.0F);
        integrateRamp(weight, count, high, after, 1.0F, 0.0F);

        const auto* const begin =
            std::find_if(weight, weight + count, [](float w) { return w != 0; });
        const float* end = weight + count;
        while (end > begin && end[-1] == 0.0F)
            --end;
        weightBins[b] = {static_cast<int>(begin - weight), static_cast<int>(end - weight)};
    }
}

/// Gain and delay over frequency, each a sum of triangles that peak at the nodes.
void BandFilters::drawCurves(const KestrixParameters& parameters, float binsPerHz) {
    const int count = sizes.fftLen / 2 + 1;
    std::fill_n(eqCurve.data(), count, 0.0F);
    std::fill_n(delayCurve.data(), count, 0.0F);
    for (int i = -1; i <= eqNodes; ++i) {
        const int node = std::clamp(i, 0, eqNodes - 1);
        const double gain = (parameters.eq[node] * parameters.eqall - 1.0) * amount + 1.0;
        const double delay = delayOf(parameters, node) * amount;
        const float low = freqTable[i + 1] * binsPerHz;
        const float centre = freqTable[i + 2] * binsPerHz;
        const float high = freqTable[i + 3] * binsPerHz;
        const auto triangle = [&](float* curve, float peak) {
            integrateRamp(curve, count, low, centre, 0.0F, peak);
            integrateRamp(curve, count, centre, high, peak, 0.0F);
        };
        triangle(eqCurve.data(), static_cast<float>(gain));
        triangle(delayCurve.data(), static_cast<float>(delay));
    }
}

/// Gain and delay as complex numbers, and each band's part of them.
void BandFilters::drawResponse(const KestrixParameters& parameters, float rate, float binsPerHz) {
    const int n = sizes.fftLen;
    const auto headroom = static_cast<long double>(
        std::pow(10.0, -parameters.headroom / 20.0)); // so that lifted levels fit
    const auto length = static_cast<long double>(n);
    for (int k = 0; k <= n / 2; ++k) {
        // Once for the transform of the filters, once for the pair that the audio goes through.
        long double m = static_cast<long double>(eqCurve[k]) / length / length;
        if (parameters.tiltEnabled) {
            const long double f = std::max(1.0L, static_cast<long double>(k) /
                                                     static_cast<long double>(binsPerHz) / 10.0L);
            m /= std::sqrt(f);
        }
        long double re = m * headroom;
        long double im = 0.0L;
        if (k > 0 && delayCurve[k] != 0.0F) {
            const long double phase =
                2.0L * std::numbers::pi_v<long double> * k *
                (static_cast<long double>(delayCurve[k]) * static_cast<long double>(rate) / length);
            im = -re * std::sin(phase);
            re *= std::cos(phase);
        }
        const Complex response{static_cast<float>(re), static_cast<float>(im)};
        for (int b = 0; b < kestrixBands; ++b)
            bandSpec[b][k] = response * bandWeight[b][k];
    }
}

void BandFilters::limitInTime(int b, const FftPlan& toSpectrum) {
    c2rPlan.executeToReal(bandSpec[b].data(), timeBuf.data());
    for (int i = 0; i < sizes.fftLen; ++i)
        scratch[i] = timeBuf[i] * timeWindow[i];
    toSpectrum.execute(scratch.data(), bandSpec[b].data());
}

/// The bins that aren't silent for all practical purposes, and one more on each side.
BandFilters::Range BandFilters::audibleBins(int b) const {
    const int n = sizes.fftLen;
    const float root = 1e-5F / static_cast<float>(n);
    const float threshold = root * root;
    const AlignedArray<Complex>& spec = bandSpec[b];
    int first = -1;
    int last = -2;
    if (std::norm(spec[0]) >= threshold) first = last = 0;
    for (int k = 1; k <= n / 2; ++k) {
        if (std::norm(spec[k]) + std::norm(spec[n - k]) < threshold) continue;
        last = k;
        if (first < 0) first = k;
    }
    return {std::max(first - 1, 0), std::min(last + 1, n / 2) + 1};
}

/// From here on the weights measure levels: by the window's power, so that a full-scale sine reads
/// 1. The odd numbers are those that this scale has always had.
void BandFilters::scaleWeights() {
    const float s = 1.0F / static_cast<float>(sizes.fftLen) / static_cast<float>(sizes.frameLen);
    const double scale = 2.0 * static_cast<double>(s) * 8192.0 / 5.0 / 614.3998306681 * 0.5;
    for (AlignedArray<float>& weight : bandWeight)
        for (int k = 0; k <= sizes.fftLen / 2; ++k)
            weight[k] = static_cast<float>(static_cast<double>(weight[k]) * scale);
}

} // namespace velorine
