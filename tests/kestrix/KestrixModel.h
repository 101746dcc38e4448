#pragma once

#include "kestrix/KestrixParameters.h"

#include <complex>
#include <vector>

namespace velorine::test {

/// The processor in double precision, frame by frame and straight from the formulas: what the
/// stage's output is measured against.
class KestrixModel {
public:
    KestrixModel(const KestrixParameters& settings, double hz);

    /// Output of all whole frames that the input has, from a fresh start.
    /// @param pairs  stereo input, interleaved
    std::vector<double> process(const std::vector<float>& pairs);

    static double softClip(double peak);

    int frameLen = 0;
    int fftLen = 0;
    int padLen = 0;
    int hop = 0;
    std::vector<double> eqCurve;              ///< `fftLen / 2 + 1`
    std::vector<std::vector<double>> weights; ///< the same by band, 0..1
    std::vector<std::vector<std::complex<double>>> filters;
    double fast[kestrixBands] = {};
    double slow[kestrixBands] = {};

    /// The gain law, for the levels that stand in `fast` and `slow`: the level that comes out.
    double law(int b) const;

private:
    using Spectrum = std::vector<std::complex<double>>;

    void design();
    void limitToAudible(int b);
    void runFrame(const std::vector<float>& pairs, long start);
    void weigh(Spectrum& spectrum);
    void followSlow();

    KestrixParameters settings;
    double rate;
    double amount;
    std::vector<std::pair<int, int>> ranges;
    Spectrum tail; ///< sum of the frames so far, from the present one's start on
};

/// Discrete Fourier transform of a power of two of values, not normalised; `sign` -1 forward.
void transform(std::vector<std::complex<double>>& values, int sign);

} // namespace velorine::test
