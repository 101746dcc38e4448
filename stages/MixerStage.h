#pragma once

#include "chain/FxStage.h"

#include <atomic>
#include <cstdint>

namespace velorine {

/// Makes four channels of a mono or stereo stream: a front pair, and a rear pair that is the same
/// programme `antidelay` seconds ahead. The front is what is held back.
///
/// In:  any format. Out: four channels of the input's type and rate, the front's times; of 8-bit
///      and 64-bit samples, of more than two channels, and where the format changes between the
///      pairs, the front as it is. Disabled, the input by reference.
/// Threads: the pump's; the settings from any thread, read once a block (relaxed).
class MixerStage final : public FxStage {
public:
    void exchangeSettings(RegistryNode& node) override;
    std::int64_t inputEndFor(int delta, const FxPos& pos) override;
    void seek(int delta, const FxPos& pos) override;
    bool process(FxArena& arena, FxBlock& out, FxRing& in, int maxFrames) override;

    std::atomic<bool> enable{false};
    std::atomic<double> antidelay{0.05}; ///< seconds; a change shifts the pairs at once
    std::atomic<bool> invertrear{false};
    std::atomic<bool> rearon{true};
    std::atomic<bool> fronton{true};

private:
    bool mix(FxArena& sampleArena, FxBlock& out, const FxRing& in);
    std::int64_t delayFrames() const;

    std::int64_t nextFrame = 0; ///< input frame that the front reads next
    std::int32_t rate = 48000;  ///< of the block read last, Hz
    std::int32_t cursor = 0;    ///< absolute number of the block that the pass-through reads next
};

} // namespace velorine
