#pragma once

#include "foundation/FxTime.h"
#include "foundation/Lock.h"

#include <atomic>
#include <cstdint>
#include <limits>

namespace velorine {

/// How far the chain runs ahead of the speakers.
///
/// A start or a seek answers at once with 200 ms; after half a second the depth grows by 0.35 s per
/// second of playing, up to just under 10 s, so that a long steady play is protected by a deep
/// buffer. It never stands more than 100 ms above what is really there. Any thread.
class BufferTarget {
public:
    /// Depth in ms at `now`.
    int milliseconds(FxTime now) const;

    /// Depth in frames at `rate` Hz.
    std::int64_t frames(FxTime now, int rate) const;

    /// Pulls the depth down to what is buffered, if it stands more than 100 ms above that.
    void noteBuffered(FxTime now, std::int64_t bufferedMs);

    /// The device starts: growth begins anew if it hasn't got anywhere yet.
    void deviceStarts(FxTime now);

    std::atomic<bool> adaptive{true};  ///< off: always 10 s; relaxed
    std::atomic<int> minBufferMs{200}; ///< relaxed

private:
    int millisecondsLocked(FxTime now) const;

    static constexpr FxTime never = std::numeric_limits<FxTime>::max() / 2;

    mutable Lock lock;
    FxTime growStart = never; ///< guarded by lock: the depth is the least before
    FxTime growHold = never;  ///< guarded by lock: growth begins here
};

} // namespace velorine
