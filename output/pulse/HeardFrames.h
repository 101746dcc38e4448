#pragma once

#include "foundation/FxTime.h"

#include <cstdint>

namespace velorine {

/// How much of a stream has come out of the speakers, from what the server tells of it now and then
/// and the clock in between. Frames count from the stream's first. Guarded by its owner.
class HeardFrames {
public:
    /// The stream as it was at one moment.
    struct Report {
        FxTime at = 0;                ///< when it was so
        std::int64_t takenFrames = 0; ///< given to the sink
        FxTime sinkDelay = 0;         ///< from there to the speakers
        FxTime sinkBuffer = 0;        ///< the longest that delay gets
        bool flows = false;           ///< the sink gets all it asks for
    };

    explicit HeardFrames(int streamRate) : rate(streamRate) {}

    /// Another stream begins at `now`.
    void begin(FxTime now);

    void take(const Report& report);

    /// Frames heard at `now`, of `sent` that the server was given. Never goes back.
    std::int64_t at(FxTime now, std::int64_t sent);

    /// As `at`, from the last report alone: less than that where the stream stood still after an
    /// earlier one.
    std::int64_t reckoned(FxTime now, std::int64_t sent) const;

    /// Frames at `now` that the sink has, or has nearly, taken: what lies behind can be replaced.
    std::int64_t firmEnd(FxTime now, std::int64_t sent);

    /// When the stream was last seen to move on, and what was heard by then.
    struct Progress {
        FxTime at = 0;
        std::int64_t frames = 0;
    };
    Progress lastProgress() const noexcept { return progress; }

private:
    std::int64_t framesIn(FxTime time) const;

    const int rate; ///< Hz
    Report last;
    bool reported = false;
    std::int64_t heard = 0;
    Progress progress;
};

} // namespace velorine
