#pragma once

#include "foundation/FxTime.h"

#include <cstdint>

namespace velorine {

/// Makes a monotonic 64-bit stream position out of a device's wrapping play cursor.
///
/// Between two readings of the cursor the position is an estimate from the clock and from the
/// card's measured rate. Guarded by its owner. Positions are frames since the stream began.
class PositionTracker {
public:
    /// The device stands at `played`, its cursor at `cursor`.
    void place(std::int64_t played, int cursor);

    /// The device began to play at `now`.
    void begin(FxTime now);

    /// Forgets the measured rate.
    void forgetDrift();

    /// Whether the hardware has to be asked at `now`; if not, the estimate will do.
    bool needsCursor(FxTime now, std::int64_t writtenEnd, int rate) const;

    /// Takes in the cursor as read at `now`, a place in the buffer of `bufferFrames`.
    void takeCursor(int cursor, FxTime now, std::int64_t writtenEnd, int rate, int bufferFrames);

    /// Where the cursor itself says that the device is, without any smoothing.
    std::int64_t cursorPosition(int cursor, FxTime now, int rate, int bufferFrames) const;

    /// Position at `now`. May lie behind what was written.
    std::int64_t estimate(FxTime now, int rate) const;

    /// Publishes the estimate at `now`, held to what was written and never going back.
    std::int64_t publish(FxTime now, std::int64_t writtenEnd, int rate);

    /// Publishes `position` if it lies ahead.
    void raisePublished(std::int64_t position);

    std::int64_t played() const noexcept { return playedFrames; }
    std::int64_t floor() const noexcept { return positionFloor; }
    std::int64_t published() const noexcept { return publishedPosition; }
    double drift() const noexcept { return driftRatio; }

private:
    std::int64_t unwrapped(int cursor, std::int64_t estimatedDelta, int bufferFrames) const;
    void measureDrift(FxTime now, int rate);

    std::int64_t playedFrames = 0;      ///< as of the last reading of the cursor
    int lastPlayCursor = 0;             ///< where it stood then
    FxTime lastCursorTime = 0;          ///< when `playedFrames` last moved
    std::int64_t positionFloor = 0;     ///< no later estimate falls below this
    std::int64_t publishedPosition = 0; ///< what everybody else reads
    FxTime startTime = 0;
    double driftRatio = 1.0; ///< the card's rate over the nominal one, 0.96 to 1.04
    FxTime driftStartTime = 0;
    std::int64_t driftStartPosition = 0;
    bool driftRunning = false;
};

/// Silence that has to stand behind the queued audio, so that a late writer doesn't let the device
/// replay what the buffer held before: the number of frames to add, 0 or below for none.
///
/// @param queued  frames of audio not played yet; negative when the device is already past its end
/// @param padded  frames of silence behind the audio
std::int64_t paddingNeeded(std::int64_t queued, std::int64_t padded, int rate);

/// Padding below this many frames is counted but not written.
std::int64_t smallestWrittenPadding(int rate);

/// Frames that have to be queued before a device is started.
std::int64_t preloadFrames(int rate);

/// Milliseconds until the feed thread looks again, 50 to 970, for a queue of `queued` frames.
int feedWaitMs(std::int64_t queued, int rate);

} // namespace velorine
