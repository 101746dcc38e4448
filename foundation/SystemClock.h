#pragma once

#include "foundation/FxTime.h"
#include "foundation/RecursiveLock.h"

#include <atomic>
#include <cstdint>

namespace velorine {

/// The machine's time in 100 ns ticks, monotonic; asks for the shortest timer period meanwhile.
///
/// Reads the high-resolution counter. Where there is none it extends the 32-bit multimedia time.
/// `now` may be called from any thread.
class SystemClock {
public:
    SystemClock();
    ~SystemClock();
    SystemClock(const SystemClock&) = delete;
    SystemClock& operator=(const SystemClock&) = delete;

    FxTime now() const;

    /// Timer period in ms that was had, or -1.
    int timerPeriod() const noexcept { return period; }

private:
    FxTime extendedMediaTime() const;

    double ticksPerCount = 0.0; ///< 0: there is no counter
    int period = -1;
    mutable RecursiveLock wrapLock{LockRank::primitive}; ///< the time is asked under any lock
    mutable std::atomic<std::uint32_t> wraps{0}; ///< changes of the reading's top bit so far
};

/// A 1 ms timer period for as long as the scope lasts.
class TimerPeriodScope {
public:
    TimerPeriodScope();
    ~TimerPeriodScope();
    TimerPeriodScope(const TimerPeriodScope&) = delete;
    TimerPeriodScope& operator=(const TimerPeriodScope&) = delete;

    bool granted() const noexcept { return isGranted; }

private:
    const bool isGranted;
};

} // namespace velorine
