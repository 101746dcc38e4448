#include "foundation/CpuFeatures.h"
#include "foundation/Mt19937.h"
#include "foundation/Rounding.h"
#include "stages/resample/ResampleFilter.h"
#include "stages/resample/ResampleKernels.h"

#include <algorithm>
#include <cmath>

namespace velorine {

namespace {

/// Where a fraction of a frame lies in the table. The filter runs backward against the samples, so
/// the rest of the frame counts.
struct TablePlace {
    int row;
    double t;
};

TablePlace placeOf(const FxPos& position, int tableRows) {
    const double fraction = static_cast<double>(position.frac >> 11) * 0x1p-53;
    const double u = (1.0 - fraction) * tableRows;
    const int row = static_cast<int>(u);
    return {row, u - row};
}

/// The sums over a frame's taps of both channels, one for each term, taken together at `t`.
template <typename Number>
void sumTaps(const std::int32_t* x, const Number* row, int taps, Number t, Number (&y)[2]) {
    Number sums[ResampleFilter::terms][2] = {};
    for (int term = 0; term < ResampleFilter::terms; ++term)
        for (int j = 0; j < 2 * taps; ++j)
            for (int channel = 0; channel < 2; ++channel)
                sums[term][channel] +=
                    static_cast<Number>(x[2 * j + channel]) * row[ResampleFilter::place(term, j)];
    for (int channel = 0; channel < 2; ++channel)
        y[channel] = ((sums[0][channel] * t + sums[1][channel]) * t + sums[2][channel]) * t +
                     sums[3][channel];
}

void runDithered(const ResampleRun& run) {
    const ResampleFilter& filter = *run.filter;
    const double high = std::ldexp(1.0, 31 - run.shift) - 1.0;
    const double low = -std::ldexp(1.0, 31 - run.shift);
    FxPos position{0, run.position.frac};
    for (int i = 0; i < run.frames; ++i) {
        const TablePlace place = placeOf(position, filter.tableRows);
        const std::int32_t* const x = run.window + 2 * (run.firstTap + position.whole);
        double y[2];
        sumTaps(x, filter.row(place.row), filter.taps, place.t, y);
        for (int channel = 0; channel < 2; ++channel) {
            const double dithered = run.gain * y[channel] + run.dither->triangular();
            const auto word =
                static_cast<std::int32_t>(roundToEven(std::clamp(dithered, low, high)));
            run.to[2 * i + channel] =
                static_cast<std::int32_t>(static_cast<std::uint32_t>(word) << run.shift);
        }
        position += run.step;
    }
}

void runPairs(const ResampleRun& run) {
    const ResampleFilter& filter = *run.filter;
    FxPos position{0, run.position.frac};
    for (int i = 0; i < run.frames; ++i) {
        const TablePlace place = placeOf(position, filter.tableRows);
        const std::int32_t* const x = run.window + 2 * (run.firstTap + position.whole);
        float y[2];
        sumTaps(x, filter.rowFloat(place.row), filter.taps, static_cast<float>(place.t), y);
        for (int channel = 0; channel < 2; ++channel)
            run.to[2 * i + channel] = static_cast<std::int32_t>(roundToEven(
                std::clamp(run.gain * static_cast<double>(y[channel]), -0x1p31, 0x1p31 - 1.0)));
        position += run.step;
    }
}

} // namespace

const ResampleKernel ditherKernel = {runDithered, 3, 0, true, "double, dithered"};
const ResampleKernel pairsKernel = {runPairs, 4, cpuFeature::amd3dNow, false, "single, in pairs"};

} // namespace velorine
