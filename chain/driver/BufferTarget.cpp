#include "chain/driver/BufferTarget.h"

#include <algorithm>
#include <cmath>

namespace velorine {

namespace {
constexpr double growthPerSecond = 0.35;
constexpr double mostSeconds = 9.999;
constexpr FxTime holdTime = ticksPerSecond / 2;
constexpr int fixedSeconds = 10; ///< without adaption
} // namespace

int BufferTarget::millisecondsLocked(FxTime now) const {
    if (!adaptive.load(std::memory_order_relaxed)) return fixedSeconds * 1000;
    double seconds = minBufferMs.load(std::memory_order_relaxed) / 1000.0;
    if (now >= growStart && now > growHold)
        seconds += static_cast<double>(now - growHold) / ticksPerSecond * growthPerSecond;
    // A sum that only rounding carried over a whole millisecond stays there.
    return static_cast<int>(std::ceil(std::min(seconds, mostSeconds) * 1000.0 - 1e-6));
}

int BufferTarget::milliseconds(FxTime now) const {
    const Lock::Scope guard{lock};
    return millisecondsLocked(now);
}

std::int64_t BufferTarget::frames(FxTime now, int rate) const {
    return (std::int64_t{rate} * milliseconds(now) + 999) / 1000;
}

void BufferTarget::noteBuffered(FxTime now, std::int64_t bufferedMs) {
    const Lock::Scope guard{lock};
    if (bufferedMs + 100 >= millisecondsLocked(now)) return;
    const std::int64_t above = bufferedMs + 100 - minBufferMs.load(std::memory_order_relaxed);
    if (above <= 0) {
        growStart = now;
        growHold = now + holdTime;
        return;
    }
    const double seconds = static_cast<double>(above) / 1000.0 / growthPerSecond;
    growHold = now - static_cast<FxTime>(seconds * ticksPerSecond);
    growStart = growHold - holdTime;
}

void BufferTarget::deviceStarts(FxTime now) {
    const Lock::Scope guard{lock};
    if (millisecondsLocked(now) > minBufferMs.load(std::memory_order_relaxed) + 1) return;
    growStart = now;
    growHold = now + holdTime;
}

} // namespace velorine
