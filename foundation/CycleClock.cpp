#include "foundation/CycleClock.h"

#include "foundation/SystemClock.h"

#include <xmmintrin.h>

namespace velorine {

namespace {

constexpr FxTime leastSpan = 1000; ///< 0.1 ms
constexpr int mostTries = 32;
constexpr int pausesPerTry = 500; ///< some 10 us
constexpr double lowestAgreement = 0.95;
constexpr double highestAgreement = 1.05;

} // namespace

CycleClock& CycleClock::instance() {
    static CycleClock* const clock = new CycleClock; // outlives every thread
    return *clock;
}

double CycleClock::sample(const SystemClock& clock) const {
    const FxTime start = clock.now();
    const std::uint64_t firstCycle = counter();
    for (int tries = 0; tries < mostTries; ++tries) {
        for (int pause = 0; pause < pausesPerTry; ++pause)
            _mm_pause();
        const FxTime span = clock.now() - start;
        const std::uint64_t cycles = counter() - firstCycle;
        if (span >= leastSpan) return static_cast<double>(cycles) / static_cast<double>(span);
    }
    return 0.0;
}

void CycleClock::calibrate(const SystemClock& clock) {
    if (cyclesPerTick() > 0.0) return;
    const std::lock_guard guard{lock};
    const double taken = sample(clock);
    if (!(taken > 0.0)) return;
    const double agreement = taken / mean;
    if (samples > 0 && !(agreement >= lowestAgreement && agreement <= highestAgreement)) {
        samples = 0;
        mean = 0.0;
        return;
    }
    ++samples;
    mean += (taken - mean) / samples;
    if (samples == enoughSamples) rate.store(mean, std::memory_order_relaxed);
}

} // namespace velorine
