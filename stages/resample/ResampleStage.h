#pragma once

#include "chain/FxStage.h"
#include "chain/WindowRead.h"
#include "foundation/Mt19937.h"
#include "stages/resample/ResampleFilter.h"
#include "stages/resample/ResampleKernels.h"

#include <atomic>
#include <cstdint>

namespace velorine {

/// Converts the stream's rate to the output's and changes its tempo: both are one ratio, so pitch
/// moves with tempo.
///
/// In:  any format. Out: stereo, 32-bit integers, 128 to 512 frames at a time, also where the rates
///      are the same; disabled, the input by reference.
/// Threads: the pump's; `speed`, `srate`, `rolloff` and `enable` are written by any thread and read
/// once a block (relaxed).
class ResampleStage final : public FxStage {
public:
    /// Ratios beyond it, from rates that no audio has, go through as they are.
    static constexpr double highestRatio = 256.0;

    /// @param features  `cpuFeature` bits that may be used
    explicit ResampleStage(std::uint32_t features);
    ResampleStage();

    void exchangeSettings(RegistryNode& node) override;
    std::int64_t inputEndFor(int delta, const FxPos& pos) override;
    std::int64_t inputStartFor(int delta, const FxPos& pos) override;
    void reset() override;
    void seek(int delta, const FxPos& pos) override;
    bool process(FxArena& arena, FxBlock& out, FxRing& in, int maxFrames) override;
    void checkPlace(std::int64_t ringEnd) const override;

    std::atomic<double> speed{1.0};     ///< tempo
    std::atomic<float> srate{48000.0F}; ///< output rate, Hz; 0 or below: the stream's own
    std::atomic<double> rolloff{0.45};  ///< end of the pass-band, of the Nyquist frequency
    std::atomic<bool> enable{false};
    bool dither = false; ///< for the kernel that knows it

    const ResampleFilter& design() const { return filter; }
    std::int64_t framesOut = 0; ///< number of the next output frame; a rewind moves it back

private:
    bool resample(FxArena& sampleArena, FxBlock& out, const FxRing& in, double outRate);
    bool passThrough(FxArena& sampleArena, FxBlock& out, const FxRing& in);
    bool isOn() const;
    double ratioFor(double outRate) const;

    const std::uint32_t features;
    FxPos pos; ///< of the next output frame, in input frames
    float sourceRate = 48000.0F;
    std::int32_t cursor = 0; ///< absolute number of the block that the pass-through reads next
    ResampleFilter filter;
    double designedFor = 0.45; ///< `rolloff` as last taken over
    Mt19937 ditherGen;
};

} // namespace velorine
