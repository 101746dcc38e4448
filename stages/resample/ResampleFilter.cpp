#include "stages/resample/ResampleFilter.h"

#include "stages/resample/BesselI.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace velorine {

namespace {

constexpr double pi = std::numbers::pi;

/// Settings come from files that people edit: what is no number, or out of all measure, becomes the
/// nearest that can be designed.
double within(double value, double low, double high) {
    return value >= low ? std::min(value, high) : low;
}

constexpr int mostAccuracy = 64;         ///< bits
constexpr double mostAttenuation = 1000; ///< dB
constexpr double widestPassBand = 0.97;

/// Kaiser's transition width: `D / w` samples on each side reach the attenuation.
double kaiserWidth(double attenuation) {
    return attenuation >= 21.0 ? (attenuation - 7.95) / 14.36 : 0.9222;
}

double kaiserBeta(double attenuation) {
    if (attenuation < 21.0) return 0.0;
    if (attenuation <= 50.0)
        return 0.5842 * std::pow(attenuation - 21.0, 0.4) + 0.07886 * (attenuation - 21.0);
    return 0.1102 * (attenuation - 8.7);
}

double sinc(double x) {
    if (std::abs(x) > 1e-5) return std::sin(x) / x;
    const double q = x * x;
    return 1.0 - q / 6.0 + q * q / 120.0 - q * q * q / 5040.0;
}

/// Derivative of `sinc(k n)` by `n`, where `phi` is `k n`.
double sincSlope(double phi, double k, double n) {
    if (std::abs(phi * k) > 1e-5) return std::cos(phi) / n - std::sin(phi) / (n * phi);
    const double q = phi * phi;
    return k * (phi / -3.0 + phi * q / 30.0 - phi * q * q / 840.0);
}

/// The Kaiser window and its derivative over a place of 0.5 in the centre and 1 at the end.
class KaiserWindow {
public:
    explicit KaiserWindow(double shape) : beta(shape), centre(besselI0(shape)) {}

    double at(double u) const {
        if (beta == 0.0) return 1.0;
        if (!(u >= 0.0 && u < 1.0)) return besselI0(0.0) / centre;
        return besselI0(2.0 * beta * std::sqrt(u * (1.0 - u))) / centre;
    }

    double slopeAt(double u) const {
        if (beta == 0.0) return 0.0;
        double e = 0.0009999994999998752; // of 1e-6: at the very ends both would be 0
        double lean = 0.999998;
        if (u > 1e-6 && u < 0.999999) {
            e = std::sqrt(u * (1.0 - u));
            lean = 1.0 - 2.0 * u;
        }
        return lean * beta * besselI1(2.0 * beta * e) / (centre * e);
    }

private:
    double beta;
    double centre;
};

} // namespace

void ResampleFilter::setRatio(double wanted) {
    if (wanted != rawRatio && built) redesign = true;
    rawRatio = wanted;
    const double lowest = std::max(wanted, 1.0);
    if (lowest == ratio) return;
    ratio = lowest;
    redesign = true;
}

void ResampleFilter::design() {
    if (accuracy > 0) setTargets();
    if (!redesign) return;
    redesign = false;
    setLength();
    sampleFilter();
    fitPolynomials();
    orderRows();
    built = true;
}

void ResampleFilter::setTargets() {
    needsDouble = true;
    const double wanted =
        std::min(accuracy, mostAccuracy) * 6.0 + 35.0 + 3.0 * std::log2(rate / 48000.0);
    if (wanted != stopband) redesign = true;
    stopband = wanted;
    const double grid = std::ceil(19.0 * std::pow(4.0, (stopband - 131.0) / 48.0));
    const int rows = static_cast<int>(std::clamp(grid, 1.0, 2047.0));
    if (rows != tableRows) redesign = true;
    tableRows = rows;
    if (accuracy < 17 && tableRows < 256) needsDouble = false;
}

void ResampleFilter::setLength() {
    tableRows = std::clamp(tableRows, 1, 2047);
    stopband = within(stopband, 0.0, mostAttenuation);
    rolloff = within(rolloff, 0.0, widestPassBand);
    attenuation = stopband + 8.0;
    if (stopband > 90.0) attenuation += (stopband - 90.0) * 0.122;
    cutOff = band / ratio;
    const double transition = std::max(cutOff - (band - rolloff), 0.0);
    const double width = cutOff - transition;
    const double wanted = std::ceil(kaiserWidth(attenuation) / width);
    const int most = mostEntries / tableRows / 2;
    halfLength = wanted >= 1.0 && wanted < most ? wanted : wanted < 1.0 ? 1.0 : most;
    taps = static_cast<int>(halfLength);
    rowStride = (2 * taps + 3) / 4 * 4;
}

void ResampleFilter::sampleFilter() {
    const int points = taps * tableRows + 2;
    values.assign(static_cast<std::size_t>(points), 0.0);
    slopes.assign(static_cast<std::size_t>(points), 0.0);
    const KaiserWindow window{kaiserBeta(attenuation)};
    // The edge stands in the middle of the transition.
    const double edge = cutOff - kaiserWidth(attenuation) * 0.5 / halfLength;
    const double k = edge * pi / tableRows;
    const double placesPerStep = 1.0 / (2.0 * halfLength * tableRows);
    for (int n = 0; n < points; ++n) {
        const double phi = edge * pi * n / tableRows;
        const double u = n / (2.0 * halfLength * tableRows) + 0.5;
        const double tone = sinc(phi);
        const double weight = window.at(u);
        const auto at = static_cast<std::size_t>(n);
        values[at] = tone * weight * edge;
        slopes[at] =
            (sincSlope(phi, k, n) * weight + tone * window.slopeAt(u) * placesPerStep) * edge;
    }
}

void ResampleFilter::fitPolynomials() {
    const int centre = taps * tableRows;
    const auto value = [&](int n) { return values[static_cast<std::size_t>(n)]; };
    const auto slope = [&](int n) { return slopes[static_cast<std::size_t>(n)]; };

    double sum = 0.0; // the integral over one half, in grid steps
    for (int n = centre - 1; n >= 0; --n) {
        const double h0 = value(n);
        const double h1 = value(n + 1);
        const double g0 = slope(n);
        const double c3 = 2.0 * h0 - 2.0 * h1 + g0 + slope(n + 1);
        sum += (h1 - h0 - g0 - c3) / 3.0 + c3 / 4.0 + g0 / 2.0 + h0;
    }
    const double gain = std::min(1.0 / (2.0 * sum / tableRows), 1.0);

    polyTable.resize((2 * static_cast<std::size_t>(centre) + 1) * terms);
    for (int i = 0; i <= 2 * centre; ++i) {
        const bool left = i < centre; // mirrored
        const int n0 = left ? centre - i : i - centre;
        const int n1 = left ? n0 - 1 : n0 + 1;
        const double side = left ? -gain : gain;
        const double h0 = value(n0) * gain;
        const double h1 = value(n1) * gain;
        const double g0 = slope(n0) * side;
        const double g1 = slope(n1) * side;
        double* const entry = polyTable.data() + static_cast<std::ptrdiff_t>(i) * terms;
        entry[0] = 2.0 * h0 - 2.0 * h1 + g0 + g1;
        entry[1] = h1 - (entry[0] + h0) - g0;
        entry[2] = g0;
        entry[3] = h0;
    }
}

/// All taps of one fractional position side by side.
void ResampleFilter::orderRows() {
    const int count = (tableRows + 1) * rowLength();
    rowTable.resize(count);
    rowTableFloat.resize(count);
    for (int r = 0; r <= tableRows; ++r) {
        double* const to = rowTable.data() + rowOffset(r);
        for (int t = 0; t < 2 * taps; ++t) {
            const double* const entry =
                polyTable.data() + (static_cast<std::ptrdiff_t>(tableRows) * t + r) * terms;
            for (int term = 0; term < terms; ++term)
                to[place(term, t)] = entry[term];
        }
    }
    for (int i = 0; i < count; ++i)
        rowTableFloat[i] = static_cast<float>(rowTable[i]);
}

} // namespace velorine
