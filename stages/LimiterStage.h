#pragma once

#include "chain/FxStage.h"
#include "foundation/AlignedArray.h"
#include "stages/LimiterKernels.h"

#include <atomic>
#include <cstdint>

namespace velorine {

/// Look-ahead peak limiter: keeps the stream within full scale, 1.0.
///
/// The gain goes down in advance, along the straight line that just reaches what a frame requires,
/// and recovers with a half-life of 1 ms: a peak yields a short dip and no clipped wave. Below
/// -40 dB it doesn't go.
///
/// In:  any format. Out: float, 2 channels, the input's rate; 32 frames stay behind. Disabled, the
///      input by reference.
/// Threads: the pump's; `enable` from any thread, read once a block (relaxed).
class LimiterStage final : public FxStage {
public:
    /// @param features  `cpuFeature` bits that may be used
    explicit LimiterStage(std::uint32_t features);
    LimiterStage();

    void exchangeSettings(RegistryNode& node) override;
    void seek(int delta, const FxPos& pos) override;
    bool process(FxArena& arena, FxBlock& out, FxRing& in, int maxFrames) override;

    std::atomic<bool> enable{true};

private:
    bool limit(FxArena& sampleArena, FxBlock& out, const FxRing& in);

    static constexpr int mostFrames = 1152; ///< of a block

    const LimiterKernels& kernels;
    std::int64_t nextFrame = 0; ///< input frame that is read next
    std::int32_t cursor = 0;    ///< absolute number of the block that the pass-through reads next
    std::int32_t rate = 48000;  ///< Hz, for the recovery alone; never follows the stream
    double gain = 1.0;          ///< linear, of the frame before; survives a seek
    AlignedArray<double> required;
    AlignedArray<double> gains;
};

} // namespace velorine
