#pragma once

#include "chain/FxStage.h"
#include "foundation/Mt19937.h"
#include "foundation/RecursiveLock.h"

#include <atomic>
#include <cstdint>

namespace velorine {

/// Last stage: what it delivers is what is heard. Makes a gap-free stream of the ring before it,
/// and puts the pause beep in, behind all processing.
///
/// In:  any format. Out: the same by reference; with a gain below 1 16-bit and 32-bit integers stay
///      what they are, everything else becomes float.
/// Threads: the pump's; `gain`, `pausedBits` and `beepPending` from any thread, read once a block.
class TailStage final : public FxStage {
public:
    TailStage() = default;

    int alignRewind(int delta, const FxPos& pos) override;
    void seek(int delta, const FxPos& pos) override;
    bool process(FxArena& arena, FxBlock& out, FxRing& in, int maxFrames) override;
    bool held() const override;
    void checkPlace(std::int64_t ringEnd) const override;

    /// End of the run of uniform, full-width frames from `from` on, in the ring last read.
    std::int64_t firstUsableFrame(std::int64_t from, std::int64_t to) const;

    /// Frame of the ring last read at which `time` falls.
    std::int64_t timeToFrame(FxTime time) const;

    /// Stream time that the reader follows while `pausedBits` is 1; it only ever jumps ahead, and
    /// never for less than 1.1 s.
    void setTargetTime(FxTime time);

    std::int64_t nextFrame = 0; ///< input frame that is read next

private:
    FxTime targetTime = 0; ///< guarded by targetLock; 64 bits on a 32-bit machine

public:
    std::int64_t framesOut = 0; ///< output frames so far; a rewind moves it back

    /// The pause word: 0 the stream; exactly 1 the stream, following `targetTime`; any other value
    /// empty blocks. Relaxed: a stale value costs one block.
    std::atomic<std::int32_t> pausedBits{0};

    std::atomic<double> gain{1.0}; ///< linear; relaxed
    std::int32_t rate = 48000;     ///< nominal

    std::atomic<std::int32_t> beepPending{0}; ///< not 0: a beep comes next; relaxed

    /// The two factors of the beep's amplitude; relaxed.
    std::atomic<double> beepLevel{2.0};
    std::atomic<double> beepGain{0.12182625};

private:
    bool produce(FxArena& arena, FxBlock& out);
    bool produceGained(FxArena& arena, FxBlock& out, double factor);
    void produceBeep(FxArena& arena, FxBlock& out);
    void followTarget();
    FxTime nextTime() const;

    std::int32_t cursor = 0; ///< absolute number of the block that is read next
    std::int64_t beepEndFrame =
        0; ///< `framesOut` behind the last beep: no rewind goes further back
    RecursiveLock targetLock{LockRank::stage};
    Mt19937 ditherGen;
    Mt19937 beepGen;
    FxRing* input = nullptr; ///< the ring last passed to `process`
};

} // namespace velorine
