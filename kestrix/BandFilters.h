#pragma once

#include "foundation/AlignedArray.h"
#include "kestrix/FftPlan.h"
#include "kestrix/FrameSizes.h"
#include "kestrix/KestrixParameters.h"

namespace velorine {

/// The seven band filters of the processor: the gain curve with its delays as one response over
/// frequency, split by band, each band limited to `padLen` taps around time 0 so that a frame
/// convolved with it doesn't wrap. They hold the headroom and all normalisation of the transforms.
///
/// Threads: the pump's.
class BandFilters {
public:
    /// Bins that a band's filter lets through, `[low, high)`; `{0, 0}` for none.
    struct Range {
        int low = 0;
        int high = 0;
    };

    /// Designs all filters anew.
    ///
    /// @param rate  Hz, of the audio
    void rebuild(const KestrixParameters& parameters, float rate, const FrameSizes& sizes);

    /// Whole spectrum of a band's filter, `fftLen` bins, conjugate-symmetric.
    const Complex* spectrum(int b) const { return bandSpec[b].data(); }
    Range range(int b) const { return bins[b]; }

    /// Weight of a band's bins, `fftLen / 2 + 1`, such that the weighted squares of the spectrum of
    /// a windowed full-scale sine in one channel sum to 0.5.
    const float* weight(int b) const { return bandWeight[b].data(); }

    /// Bins with a weight, `[low, high)`.
    Range weighted(int b) const { return weightBins[b]; }

    /// How much of all effects is applied: `magnitude` as it stood at the last rebuild.
    double effectAmount() const { return amount; }

    FftPlanHolder forwardPlan; ///< from one array of `fftLen` to another
    FftPlanHolder inversePlan;

private:
    void splitBands(const KestrixParameters& parameters, float binsPerHz);
    void drawCurves(const KestrixParameters& parameters, float binsPerHz);
    void drawResponse(const KestrixParameters& parameters, float rate, float binsPerHz);
    void limitInTime(int b, const FftPlan& toSpectrum);
    Range audibleBins(int b) const;
    void scaleWeights();

    FrameSizes sizes;
    double amount = 0.0;
    FftPlan c2rPlan;
    AlignedArray<float> timeBuf;
    AlignedArray<Complex> scratch;
    AlignedArray<float> timeWindow; ///< `fftLen`, time 0 first
    AlignedArray<float> eqCurve;
    AlignedArray<float> delayCurve; ///< seconds
    AlignedArray<Complex> bandSpec[kestrixBands];
    AlignedArray<float> bandWeight[kestrixBands];
    Range bins[kestrixBands];
    Range weightBins[kestrixBands];
};

} // namespace velorine
