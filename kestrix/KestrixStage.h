#pragma once

#include "chain/FxStage.h"
#include "foundation/AlignedArray.h"
#include "kestrix/BandDynamics.h"
#include "kestrix/BandFilters.h"
#include "kestrix/KestrixKernels.h"
#include "kestrix/KestrixParameters.h"
#include "kestrix/LevelHistory.h"
#include "kestrix/OverlapAdder.h"

#include <cstdint>

namespace velorine {

/// The multi-band processor: a stereo short-time spectral processor. A frame goes through one
/// forward transform, left as the real and right as the imaginary part; in the spectrum seven band
/// filters, which hold equaliser and delays, are weighted by seven gains that follow the bands'
/// levels; one inverse transform and an overlap-add give the output; a soft clip closes the stage.
///
/// In:  any format. Out: stereo float at the input's rate, half a frame length at a time; disabled,
///      the input by reference. The audio lags the times stamped on it by half a frame length.
/// Threads: the pump's; `levelsAt` any.
class KestrixStage final : public FxStage {
public:
    /// @param features  `cpuFeature` bits that may be used
    explicit KestrixStage(std::uint32_t features);
    KestrixStage();

    void exchangeSettings(RegistryNode& node) override;
    std::int64_t inputStartFor(int delta, const FxPos& pos) override;
    void reset() override;
    void seek(int delta, const FxPos& pos) override;
    bool process(FxArena& arena, FxBlock& out, FxRing& in, int maxFrames) override;
    int lagFrames() const override;

    /// Levels of the bands at a host stream time, for the meters.
    void levelsAt(FxTime time, double (&levels)[kestrixBands]) const;

    /// Changes in here take effect with the next frame; what shapes the filters (gains, delays,
    /// magnitude, headroom, bands) with `rebuildPending` set.
    KestrixParameters parameters;
    bool rebuildPending = true; ///< the filters are designed anew before the next frame

private:
    bool processEnabled(FxArena& sampleArena, FxBlock& out, const FxRing& in);
    bool passThrough(FxArena& sampleArena, FxBlock& out, const FxRing& in);
    void rebuildFilters();
    void runFrame(const FxRing& in, std::int64_t frame, bool isLast);
    void processFrame(Complex* spectrum, bool isLast, std::int64_t position, FxTime time);
    void measureBands(const Complex* spectrum, double (&level)[kestrixBands]);
    void weighSpectrum(Complex* spectrum, const double (&gains)[kestrixBands]);

    const KestrixKernels& kernels;
    FxPos stagePos;
    std::int32_t cursor = 0; ///< absolute number of the block that the pass-through reads next
    float rate = 44100.0F;
    FrameSizes sizes;
    bool resetPending = true; ///< the frames that reach into the next output are run again

    BandFilters filters;
    BandDynamics dynamics;
    OverlapAdder overlap;
    LevelHistory history;
    AlignedArray<float> window;      ///< `frameLen`
    AlignedArray<Complex> timeFrame; ///< the windowed frame amid zeros, `fftLen`
    AlignedArray<Complex> bins;      ///< its spectrum
    AlignedArray<Complex> response;  ///< what it is multiplied with, `fftLen / 2 + 1`
    AlignedArray<float> energy;      ///< by bin, `fftLen / 2`
    AlignedArray<float> difference;
};

} // namespace velorine
