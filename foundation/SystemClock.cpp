#include "foundation/SystemClock.h"

#include "foundation/Kernel.h"

namespace velorine {

SystemClock::SystemClock() {
    const unsigned shortest = kernel().shortestTimerPeriod();
    const unsigned wanted = shortest < 2 ? 1 : shortest;
    period = kernel().beginTimerPeriod(wanted) ? static_cast<int>(wanted) : -1;

    const std::int64_t frequency = kernel().counterFrequency();
    if (frequency > 0 && kernel().counter() != 0)
        ticksPerCount = static_cast<double>(ticksPerSecond) / static_cast<double>(frequency);
}

SystemClock::~SystemClock() {
    if (period > 0) kernel().endTimerPeriod(static_cast<unsigned>(period));
}

FxTime SystemClock::now() const {
    if (ticksPerCount > 0.0)
        return static_cast<FxTime>(static_cast<double>(kernel().counter()) * ticksPerCount);
    return extendedMediaTime();
}

FxTime SystemClock::extendedMediaTime() const {
    // The low bit of the counter has to be the reading's top bit: where it isn't, half a wrap has
    // passed. Each of them counts once, so the time is the counter in place of the top bit.
    std::uint32_t reading = kernel().mediaTime();
    std::uint32_t passed = wraps.load(std::memory_order_acquire);
    if ((reading >> 31) != (passed & 1u)) {
        const RecursiveLock::Scope scope{wrapLock};
        reading = kernel().mediaTime();
        passed = wraps.load(std::memory_order_relaxed);
        if ((reading >> 31) != (passed & 1u)) wraps.store(++passed, std::memory_order_release);
    }
    const auto ms = static_cast<FxTime>((std::uint64_t{passed} << 31) | (reading & 0x7fffffffu));
    return ms * ticksPerMs;
}

TimerPeriodScope::TimerPeriodScope() : isGranted(kernel().beginTimerPeriod(1)) {}

TimerPeriodScope::~TimerPeriodScope() {
    if (isGranted) kernel().endTimerPeriod(1);
}

} // namespace velorine
