#pragma once

#include "chain/FxStage.h"
#include "foundation/Mt19937.h"

#include <atomic>
#include <cstdint>

namespace velorine {

/// Puts a test signal in the place of the stream, frame for frame: two sines and a noise, each with
/// a level of its own. For measuring the chain.
///
/// In:  any format, of which only rate and times count. Out: stereo, 32-bit integers, 576 frames at
///      a time, also where the input has nothing; disabled, the input by reference.
/// Threads: the pump's; what is to be set from any thread, read once a block (relaxed).
class TestSignalStage final : public FxStage {
public:
    static constexpr int blockFrames = 576;

    std::int64_t inputEndFor(int delta, const FxPos& pos) override;
    void seek(int delta, const FxPos& pos) override;
    bool process(FxArena& arena, FxBlock& out, FxRing& in, int maxFrames) override;

    std::atomic<bool> enable{false};
    std::atomic<double> freqA{1000.0}; ///< Hz, 0 or above; more than half the rate counts as that
    std::atomic<double> freqB{2000.0};
    std::atomic<double> levelA{-12.0}; ///< dB, 0 is full scale
    std::atomic<double> levelB{-12.0};
    std::atomic<double> levelNoise{-12.0};
    std::atomic<bool> toneAOn{true};
    std::atomic<bool> toneBOn{false};
    std::atomic<bool> noiseOn{false};
    std::atomic<bool> noiseStereo{false}; ///< each channel has a noise of its own

private:
    void generate(std::int32_t* pairs);

    std::int64_t nextFrame = 0; ///< input frame that is read, or replaced, next
    std::int32_t cursor = 0;    ///< absolute number of the block that the pass-through reads next
    std::int32_t rate = 48000;  ///< of the stream, Hz
    FxPos phaseA;               ///< in cycles: the fraction is the phase
    FxPos stepA;                ///< from frame to frame, at most half a cycle
    FxPos phaseB;
    FxPos stepB;
    Mt19937 random;
};

} // namespace velorine
