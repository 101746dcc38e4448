#pragma once

#include "chain/FxStage.h"
#include "stages/PeakFilter.h"

#include <array>
#include <atomic>
#include <cstdint>

namespace velorine {

/// A fixed equaliser: a cascade of peaking filters, of which the table has one, a narrow lift of
/// 10.3 dB at 4055 Hz.
///
/// In:  any format. Out: float, 2 channels, the input's rate; disabled, the input by reference. A
///      change of rate designs the filters anew and keeps what they remember.
/// Threads: the pump's; `enable` from any thread, read once a block (relaxed).
class PeakEqStage final : public FxStage {
public:
    void seek(int delta, const FxPos& pos) override;
    bool process(FxArena& arena, FxBlock& out, FxRing& in, int maxFrames) override;

    std::atomic<bool> enable{true};
    double gain = 1.0; ///< of no effect

private:
    bool filter(FxArena& sampleArena, FxBlock& out, const FxRing& in);

    static constexpr std::array table{PeakFilterRow{4055.0F, 17.4F, -10.3F, true}};

    std::int64_t nextFrame = 0; ///< input frame that is read next
    std::int32_t cursor = 0;    ///< absolute number of the block that the pass-through reads next
    std::int32_t rate = -1;     ///< that the filters were designed for, Hz; -1: none yet
    std::array<BiquadCoefs, table.size()> sections{};
    BiquadState states[table.size()][2]; ///< of each section, left and right; survive a seek
};

} // namespace velorine
