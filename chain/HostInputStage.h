#pragma once

#include "chain/FxStage.h"
#include "foundation/RWLock.h"

#include <atomic>
#include <cstdint>

namespace velorine {

/// First stage: takes what the host wrote into the chain.
///
/// In:  the host ring, which `append` fills from the host's thread; the ring it is passed is
/// unused. Out: the host's blocks, by reference, in the host's own formats. Threads: the pump's,
/// but for `append` (any) and the flags.
class HostInputStage final : public FxStage {
public:
    /// The format that the stage presents, in the layout of a WAVE file's format record.
    struct [[gnu::packed]] Wave {
        std::uint16_t tag = 1;
        std::uint16_t channels = 2;
        std::uint32_t rate = 44100;
        std::uint32_t bytesPerSecond = 176400;
        std::uint16_t blockAlign = 4;
        std::uint16_t bits = 16;
        std::uint16_t extraBytes = 0;
    };
    static_assert(sizeof(Wave) == 18);

    /// Copies `bytes` bytes of whole frames into the ring, as the audio from `timeStart` to
    /// `timeEnd`, and wakes the chain. A null `data` appends a marker: a block without frames whose
    /// format says what follows. Any thread.
    void append(const SampleFormat& format, const void* data, std::int64_t bytes, FxTime timeStart,
                FxTime timeEnd);

    std::int64_t inputStartFor(int delta, const FxPos& pos) override;
    void seek(int delta, const FxPos& pos) override;
    bool process(FxArena& arena, FxBlock& out, FxRing& in, int maxFrames) override;

    /// As `process`, with the host ring's lock held for reading meanwhile.
    bool processBody(FxArena& arena, FxBlock& out, FxRing& in, int maxFrames);

    /// Frame at which reading stops, -1 for none. Any thread.
    void setLimit(std::int64_t frame);

    /// Drops what the host wrote, all or all but the newest block, and keeps the end of the axis:
    /// the next block continues there. Returns the marker that stands for it. Pump lock held.
    FxBlock dropAll(bool keepLast);

    Wave wave;
    FxClock* notifier = nullptr;        ///< woken after each append
    std::atomic<bool> wantsData{false}; ///< nothing was there to read; relaxed, a hint for the host
    FxArena arenaStore;                 ///< the engine's arena, passed to every stage
    RWLock hostRingLock{LockRank::ring};
    FxRing hostRing; ///< guarded by hostRingLock

    // Never set in playing; they make the stage a source of its own.
    std::atomic<bool> fillSilence{false}; ///< an empty block instead of nothing
    std::atomic<bool> muted{false};       ///< blocks lose their channels
    std::atomic<bool> pull{false};        ///< fetch more when the ring is empty

private:
    bool deliver(FxArena& arena, FxBlock& out, std::int64_t limit);
    bool fetch();

    std::int64_t readHead = 0; ///< next input frame; pump lock
    std::int32_t cursor = 0;   ///< absolute number of the block at the read head; pump lock
    RecursiveLock limitLock{LockRank::leaf};
    std::int64_t readLimit = -1; ///< guarded by limitLock
};

} // namespace velorine
