#include "output/PositionTracker.h"

#include "foundation/Rounding.h"

#include <algorithm>
#include <cmath>

namespace velorine {

namespace {
constexpr FxTime halfSecond = ticksPerSecond / 2;
constexpr FxTime settlingTime = 3 * ticksPerSecond; ///< jitter isn't smoothed before
constexpr double smoothing = 0.06;
} // namespace

void PositionTracker::place(std::int64_t played, int cursor) {
    playedFrames = played;
    lastPlayCursor = cursor;
}

void PositionTracker::begin(FxTime now) {
    lastCursorTime = startTime = now;
    positionFloor = playedFrames;
    forgetDrift();
}

void PositionTracker::forgetDrift() {
    driftRatio = 1.0;
    driftRunning = false;
}

std::int64_t PositionTracker::estimate(FxTime now, int rate) const {
    const double elapsed = static_cast<double>(now - lastCursorTime);
    const std::int64_t moved = roundToEven(rate * elapsed / ticksPerSecond * driftRatio);
    return std::max(playedFrames + moved, positionFloor);
}

bool PositionTracker::needsCursor(FxTime now, std::int64_t writtenEnd, int rate) const {
    if (now - lastCursorTime > halfSecond || now - startTime < settlingTime) return true;
    return writtenEnd - estimate(now, rate) < rate / 5;
}

/// Frames from the last reading to `cursor`, on the lap that lies nearest to the estimate: after a
/// stall the cursor may have gone round often. Negative where smoothing ran ahead of the cursor.
std::int64_t PositionTracker::unwrapped(int cursor, std::int64_t estimatedDelta,
                                        int bufferFrames) const {
    std::int64_t delta = cursor - lastPlayCursor;
    if (delta < 0) delta += bufferFrames;
    const std::int64_t laps =
        (estimatedDelta - delta + bufferFrames + bufferFrames / 2) / bufferFrames - 1;
    return delta + laps * bufferFrames;
}

std::int64_t PositionTracker::cursorPosition(int cursor, FxTime now, int rate,
                                             int bufferFrames) const {
    return playedFrames + unwrapped(cursor, estimate(now, rate) - playedFrames, bufferFrames);
}

void PositionTracker::takeCursor(int cursor, FxTime now, std::int64_t writtenEnd, int rate,
                                 int bufferFrames) {
    const std::int64_t estimatedDelta = estimate(now, rate) - playedFrames;

    std::int64_t delta = cursor - lastPlayCursor;
    if (delta < 0) delta += bufferFrames;
    // The lap that lies nearest to the estimate: after a stall the cursor may have gone round
    // often.
    const std::int64_t laps =
        (estimatedDelta - delta + bufferFrames + bufferFrames / 2) / bufferFrames - 1;
    delta = std::max<std::int64_t>(delta + laps * bufferFrames, 0);

    const std::int64_t jitter = std::abs(delta - estimatedDelta);
    if (now - startTime >= settlingTime && estimatedDelta >= 0 && jitter < 3 * rate / 1000)
        delta = roundToEven(static_cast<double>(estimatedDelta) +
                            static_cast<double>(delta - estimatedDelta) * smoothing);
    if (delta != 0) {
        playedFrames += delta;
        lastPlayCursor = static_cast<int>((lastPlayCursor + delta) % bufferFrames);
        lastCursorTime = now;
        positionFloor = std::max(positionFloor, std::min(playedFrames, writtenEnd));
    }
    measureDrift(now, rate);
}

void PositionTracker::measureDrift(FxTime now, int rate) {
    if (!driftRunning && now - startTime >= halfSecond) {
        driftStartTime = now;
        driftStartPosition = playedFrames;
        driftRunning = true;
    }
    driftRatio = 1.0;
    if (!driftRunning || now <= driftStartTime + halfSecond || playedFrames <= driftStartPosition)
        return;
    const double frames = static_cast<double>(playedFrames - driftStartPosition);
    const double elapsed = static_cast<double>(now - driftStartTime);
    driftRatio = std::clamp(frames * ticksPerSecond / (rate * elapsed), 0.96, 1.04);
}

std::int64_t PositionTracker::publish(FxTime now, std::int64_t writtenEnd, int rate) {
    raisePublished(std::min(estimate(now, rate), writtenEnd));
    return publishedPosition;
}

void PositionTracker::raisePublished(std::int64_t position) {
    publishedPosition = std::max(publishedPosition, position);
}

namespace {
std::int64_t scaledFrom44100(int rate, int frames) {
    return roundToEven(static_cast<double>(rate) * frames / 44100.0);
}
} // namespace

std::int64_t paddingNeeded(std::int64_t queued, std::int64_t padded, int rate) {
    const std::int64_t high = scaledFrom44100(rate, 32768);
    const std::int64_t low = scaledFrom44100(rate, 36000);
    return queued + padded < high ? low - queued - padded : 0;
}

std::int64_t smallestWrittenPadding(int rate) {
    return std::int64_t{rate} * 1024 / 44100;
}

std::int64_t preloadFrames(int rate) {
    return roundToEven(rate / 48000.0 * 8192.0);
}

int feedWaitMs(std::int64_t queued, int rate) {
    if (rate <= 0) return 50;
    const std::int64_t ms = std::clamp<std::int64_t>(queued * 1000 / rate, 0, 1000);
    return std::max(static_cast<int>(ms) - 30, 50);
}

} // namespace velorine
