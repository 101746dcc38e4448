#pragma once

#include "foundation/AlignedArray.h"
#include "kestrix/FftPlan.h"

#include <span>
#include <vector>

namespace velorine {

/// Mean power spectrum of a stereo stream, both channels together, over Hann-windowed frames at
/// half overlap.
///
/// P. D. Welch, "The use of fast Fourier transform for the estimation of power spectra", IEEE
/// Trans. Audio Electroacoust. 15 (1967).
class SpectrumMeter {
public:
    static constexpr int frameLength = 8192;

    SpectrumMeter();

    /// The stream's next frames, left and right interleaved.
    void feed(std::span<const float> pairs);

    /// Mean power by bin, `frameLength / 2` of them from 0 Hz on; a full-scale sine in both
    /// channels adds up to 1 over the bins around it. Empty while no frame is complete.
    std::vector<double> power() const;

private:
    void measure();

    FftPlan plan;
    AlignedArray<Complex> frame;
    AlignedArray<Complex> spectrum;
    AlignedArray<float> energy;
    AlignedArray<float> difference;
    std::vector<float> window;
    std::vector<float> waiting; ///< pairs that no frame has begun with yet
    std::vector<double> sum;
    int frames = 0;
};

} // namespace velorine
