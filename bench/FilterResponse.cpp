#include "stages/resample/ResampleFilter.h"

#include <cmath>
#include <cstdio>
#include <numbers>

namespace {

/// Magnitude at a frequency, 1 being the Nyquist frequency of the input, dB.
double responseDb(const velorine::ResampleFilter& filter, double frequency) {
    const auto& table = filter.polynomials();
    constexpr std::size_t terms = 4; // the last of a row is its value
    const int centre = filter.taps * filter.tableRows;
    double sum = 0.0;
    for (int k = 0; k <= 2 * centre; ++k)
        sum += table[terms * static_cast<std::size_t>(k) + terms - 1] *
               std::cos(std::numbers::pi * frequency * (k - centre) / filter.tableRows);
    return 20.0 * std::log10(std::abs(sum) / filter.tableRows + 1e-12);
}

} // namespace

/// Prints the resampler's response at 48 kHz out: a line a frequency, with a column for each
/// setting of the balance between a mellow and a sharp end of the pass-band.
int main() {
    velorine::ResampleFilter filters[3];
    const double rolloffs[] = {0.0, 0.45, 0.9};
    for (int i = 0; i < 3; ++i) {
        filters[i].rolloff = rolloffs[i];
        filters[i].design();
    }
    for (int step = 0; step <= 700; ++step) {
        const double frequency = step * 0.002;
        std::printf("%g", frequency);
        for (const velorine::ResampleFilter& filter : filters)
            std::printf(" %.4f", responseDb(filter, frequency));
        std::printf("\n");
    }
}
