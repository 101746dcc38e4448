#pragma once

#include "foundation/CycleCounter.h"
#include <atomic>
#include <cstdint>
#include <mutex>

namespace velorine {

class SystemClock;

/// How fast the processor's cycle counter runs, against the clock: for time stamps that cost next
/// to nothing. Any thread.
class CycleClock {
public:
    using Counter = std::uint64_t (*)();

    explicit CycleClock(Counter cycleCounter = cycleCount) : counter(cycleCounter) {}

    /// Of the process, whose counter is one.
    static CycleClock& instance();

    /// Takes a sample, until there are enough of them: at least 0.1 ms of `clock`, and given up
    /// where that time doesn't pass. A sample far from the others starts over, for the processor
    /// has changed its pace.
    void calibrate(const SystemClock& clock);

    /// Cycles in 100 ns; 0 until enough samples agree.
    double cyclesPerTick() const noexcept { return rate.load(std::memory_order_relaxed); }

private:
    double sample(const SystemClock& clock) const;

    static constexpr int enoughSamples = 5;

    const Counter counter;
    std::mutex lock;   ///< of the process, which outlives the kernels of tests; a leaf
    int samples = 0;   ///< guarded by lock, as is `mean`
    double mean = 0.0; ///< of the samples so far
    std::atomic<double> rate{0.0};
};

} // namespace velorine
