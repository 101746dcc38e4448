#pragma once

#include "foundation/AlignedArray.h"

#include <vector>

namespace velorine {

/// Low-pass filter of the resampler: a Kaiser-windowed sinc, designed for an attenuation and held
/// as a table of cubic polynomials. Each runs over one step of a grid of `tableRows` points an
/// input sample and meets value and slope of the filter at both ends, so that a few dozen rows
/// suffice for -130 dB.
///
/// J. F. Kaiser, "Nonrecursive digital filter design using the I0-sinh window function", Proc. IEEE
/// Int. Symp. Circuits and Systems (1974); J. O. Smith, "Digital audio resampling" (CCRMA).
///
/// One thread at a time.
class ResampleFilter {
public:
    /// Most entries of a table, which holds the length of a filter whose settings ask for too much.
    static constexpr int mostEntries = 1 << 20;

    /// Input frames for each output frame. A ratio below 1 designs as 1.
    void setRatio(double wanted);

    /// Brings all below up to date with the settings; cheap when nothing changed.
    void design();

    // Settings. Whoever changes one but `accuracy` and `rate` sets `redesign`.
    int accuracy = 16;       ///< bits; above 0 it sets `stopband` and `tableRows`
    double rolloff = 0.45;   ///< end of the pass-band, of the Nyquist frequency
    double band = 1.0;       ///< scale of the band edges
    double stopband = 222.0; ///< attenuation, dB
    int tableRows = 32;      ///< grid points an input sample
    double rate = 48000.0;   ///< of the output, Hz
    bool redesign = true;

    // The design.
    bool needsDouble = true; ///< single precision would be heard in the measurements
    double halfLength = 0.0; ///< input samples on each side, whole
    int taps = 0;            ///< the same
    int rowStride = 0;       ///< entries of a row, `2 * taps` in fours; the rest are 0
    double ratio = 1.0;      ///< as designed for, at least 1

    static constexpr int terms = 4; ///< of a polynomial, the cubic one first

    /// Entries by place in the filter, `tableRows * 2 * taps + 1` of `terms` numbers.
    const std::vector<double>& polynomials() const { return polyTable; }

    /// Taps of a row that stand together: one run of them for each term, so that a vector of any
    /// width finds its four terms at fixed distances.
    static constexpr int group = 8;

    /// Place of a tap's term in a row.
    static constexpr int place(int term, int tap) {
        return tap / group * group * terms + term * group + tap % group;
    }

    /// Row `r`, 0 to `tableRows`, in groups; behind `2 * taps` they hold zeros.
    const double* row(int r) const { return rowTable.data() + rowOffset(r); }
    const float* rowFloat(int r) const { return rowTableFloat.data() + rowOffset(r); }

private:
    void setTargets();
    void setLength();
    void sampleFilter();
    void fitPolynomials();
    void orderRows();
    int rowLength() const { return (rowStride + group - 1) / group * group * terms; }
    std::ptrdiff_t rowOffset(int r) const { return static_cast<std::ptrdiff_t>(r) * rowLength(); }

    double rawRatio = 1.0;
    double attenuation = 0.0; ///< dB, with the allowance for the table
    double cutOff = 1.0;      ///< of the Nyquist frequency
    bool built = false;
    std::vector<double> values; ///< the filter by grid point, from its centre on
    std::vector<double> slopes; ///< its derivative by grid point
    std::vector<double> polyTable;
    AlignedArray<double> rowTable;
    AlignedArray<float> rowTableFloat;
};

} // namespace velorine
