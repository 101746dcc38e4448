#include "foundation/Lock.h"
#include "foundation/RWLock.h"
#include "foundation/RecursiveLock.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>

namespace velorine {

namespace {

/// What an uncontended lock can't do without: one atomic increment, one decrement.
struct BareAtomic {
    std::atomic<std::int32_t> count{0};

    void pass() {
        count.fetch_add(1, std::memory_order_acquire);
        count.fetch_sub(1, std::memory_order_release);
    }
};

struct UncontendedLock {
    Lock lock;
    void pass() { const Lock::Scope scope{lock}; }
};

struct UncontendedRecursiveLock {
    RecursiveLock lock;
    void pass() { const RecursiveLock::Scope scope{lock}; }
};

struct UncontendedReader {
    RWLock lock;
    void pass() { const RWLock::ReadScope scope{lock}; }
};

template <typename Subject>
void once(benchmark::State& state) {
    Subject subject;
    for (auto _ : state)
        subject.pass();
}

template <typename Subject>
double secondsFor(Subject& subject, int passes) {
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    for (int i = 0; i < passes; ++i)
        subject.pass();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// Time of `Subject` over that of the bare atomic, both measured in turns: the counter `ratio` is
/// the median, so that neither a busy machine nor its changing clock favours one of them.
template <typename Subject>
void overBareAtomic(benchmark::State& state) {
    constexpr int passes = 20'000;
    Subject subject;
    BareAtomic bare;
    std::array<double, 101> ratios{};
    for (auto _ : state) {
        for (double& ratio : ratios) {
            const double base = secondsFor(bare, passes);
            ratio = secondsFor(subject, passes) / base;
        }
    }
    std::nth_element(ratios.begin(), ratios.begin() + ratios.size() / 2, ratios.end());
    state.counters["ratio"] = ratios[ratios.size() / 2];
}

BENCHMARK(once<BareAtomic>)->Name("BareAtomic");
BENCHMARK(once<UncontendedLock>)->Name("Lock");
BENCHMARK(once<UncontendedRecursiveLock>)->Name("RecursiveLock");
BENCHMARK(once<UncontendedReader>)->Name("RWLock/read");
BENCHMARK(overBareAtomic<UncontendedLock>)->Name("LockOverBareAtomic")->Iterations(1);
BENCHMARK(overBareAtomic<UncontendedRecursiveLock>)
    ->Name("RecursiveLockOverBareAtomic")
    ->Iterations(1);

} // namespace

} // namespace velorine

BENCHMARK_MAIN();
