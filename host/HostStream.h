#pragma once

#include "foundation/FxTime.h"
#include "foundation/Lock.h"
#include "foundation/SampleFormat.h"

#include <atomic>
#include <cstdint>

namespace velorine {

/// What is known of the host's times. One snapshot is always of one moment.
struct HostTimes {
    FxTime writtenEnd = 0;          ///< end of the audio accepted so far
    FxTime segmentBase = 0;         ///< where the running frame count started
    std::int64_t segmentFrames = 0; ///< accepted since then, skipped silence included
    FxTime timeZero = 0;            ///< stream time that the host calls 0 ms
    FxTime trackStart = 0;          ///< stream time of the start of the current track
    FxTime seekOffset = 0;          ///< position that the last seek asked for
    FxTime pendingSeek = 0;         ///< the same, until the first data after it
    bool seekPending = false;       ///< a seek awaits its first data

    /// Host time of stream time `t`, in ms.
    static std::int32_t toMs(FxTime ticks) noexcept {
        return ticks < 0
                   ? 0
                   : static_cast<std::int32_t>(static_cast<std::uint32_t>(ticks / ticksPerMs));
    }
};

/// What is known of the host's current stream; one for the process, across all tracks.
///
/// The host calls from its decoding thread and its main thread. Times are changed and read as one;
/// the rest are flags that single entry points own.
class HostStream {
public:
    HostTimes times() const {
        const Lock::Scope guard{lock};
        return current;
    }

    /// `change(HostTimes&)` as one step for every reader.
    template <typename Change>
    void update(Change&& change) {
        const Lock::Scope guard{lock};
        change(current);
    }

    SampleFormat format() const {
        const Lock::Scope guard{lock};
        return streamFormat;
    }
    void setFormat(const SampleFormat& format) {
        const Lock::Scope guard{lock};
        streamFormat = format;
    }

    /// A new session: times begin at zero, and nothing is pending.
    void reset() {
        update([](HostTimes& times) { times = HostTimes{}; });
        trackLength.store(-1);
        startupCalls.store(0);
        writeCredit.store(0);
        fadeInKind.store(0);
        skipSilence.store(false);
        silenceFrames.store(0);
        paused.store(0);
        endOfFile.store(false);
    }

    std::atomic<FxTime> trackLength{-1};       ///< of the track; negative: not asked yet
    std::atomic<std::int32_t> startupCalls{0}; ///< `CanWrite` calls since open or seek, up to 3
    std::atomic<std::int32_t> writeCredit{0};  ///< counted for nobody
    std::atomic<std::int32_t> fadeInKind{0}; ///< of the next data: 0 none, 1 after a seek, 2 a stop
    std::atomic<bool> skipSilence{false};    ///< leading silence of the track is being dropped
    std::atomic<std::int32_t> silenceFrames{0}; ///< examined for it so far
    std::atomic<std::int32_t> paused{0};        ///< last argument of `Pause`
    std::atomic<bool> endOfFile{false};

    static_assert(std::atomic<FxTime>::is_always_lock_free);

private:
    mutable Lock lock;
    HostTimes current;                                             ///< guarded by lock
    SampleFormat streamFormat{sampleType::int16, 0, 0, fullWidth}; ///< guarded by lock
};

inline constexpr std::int32_t fadeInAfterSeek = 1;
inline constexpr std::int32_t fadeInAfterStop = 2;

} // namespace velorine
