#pragma once

#include "foundation/FxTime.h"
#include "foundation/RecursiveLock.h"
#include "foundation/SmallRing.h"
#include "kestrix/KestrixParameters.h"

#include <cstdint>

namespace velorine {

/// Levels of the bands in one frame, before any gain.
struct BandLevelRecord {
    double level[kestrixBands]; ///< linear; a full-scale sine in both channels is 1
    FxTime time;                ///< host stream time
    std::int64_t position;      ///< input frame
};

/// What was measured and isn't heard yet, for the meters. Any thread.
class LevelHistory {
public:
    /// Drops records that aren't earlier than the new one: a rewind made them stale.
    void append(const BandLevelRecord& record);

    /// Drops what nobody can ask for any more, once the speakers stand at input frame `position`.
    /// Two records always stay, so that a meter shows something while playback pauses.
    void prune(std::int64_t position);

    /// Levels at `time`, between two records in proportion; zeros behind the last one, and as long
    /// as there are fewer than two.
    void levelsAt(FxTime time, double (&levels)[kestrixBands]) const;

    int count() const;

private:
    mutable RecursiveLock levelLock{LockRank::stage};
    SmallRing<BandLevelRecord> records; ///< oldest first
};

} // namespace velorine
