#include "bench/ThreadTime.h"
#include "chain/driver/FxChainEdit.h"
#include "foundation/KeepAwake.h"
#include "foundation/SystemClock.h"
#include "host/FxEngine.h"
#include "output/RecorderFile.h"
#include "tests/support/TestClock.h"
#include "tests/support/TestSound.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

// What an edit costs its caller, begin to commit: the chain goes back to its margin, and 100 ms of
// it are computed again. On a device of the test clock, so that a long queue is there at once.

namespace velorine {
namespace {

constexpr int rate = 48000;
constexpr int marginMs = 80;

/// An engine that plays noise with as much in the device's queue as it takes.
struct Playing {
    explicit Playing(bool processor) {
        engine.beep.store(false);
        engine.kestrix.parameters.enable = processor;
        engine.start(nullptr, false);
        for (int second = 0; second < 40; ++second)
            playASecond();
    }

    void playASecond() {
        std::vector<std::int16_t> samples(std::size_t{rate} * 2);
        for (std::int16_t& sample : samples)
            sample = static_cast<std::int16_t>(random());
        const FxTime end = written + ticksPerSecond;
        engine.input.append({sampleType::int16, 2, rate, fullWidth}, samples.data(),
                            static_cast<std::int64_t>(samples.size()) * 2, written, end);
        written = end;
        engine.wake();
        if (written > 4 * ticksPerSecond) clock.advance(1000);
    }

    double queuedMs() {
        const std::int64_t frames = engine.output.writtenEnd() - engine.output.position();
        return static_cast<double>(frames) * 1000.0 / rate;
    }

    test::TestClock clock;
    test::TestSound sound{clock};
    SystemClock systemClock;
    std::mt19937 random{1};
    FxTime written = 0;
    FxEngine engine{{systemClock, &sound, RecorderFiles::native(), KeepAwake::native()}};
};

void edits(benchmark::State& state, bool processor) {
    Playing playing{processor};
    double queuedMs = 0;
    for (auto _ : state) {
        queuedMs += playing.queuedMs();
        const double begin = threadSeconds();
        { FxChainEdit edit{playing.engine, marginMs, nullptr}; }
        state.SetIterationTime(threadSeconds() - begin);
        for (int second = 0; second < 10; ++second) // the queue fills again
            playing.playASecond();
    }
    state.counters["queuedMs"] = benchmark::Counter(queuedMs, benchmark::Counter::kAvgIterations);
}

BENCHMARK_CAPTURE(edits, plainChain, false)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(edits, withProcessor, true)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
} // namespace velorine

BENCHMARK_MAIN();
