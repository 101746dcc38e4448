#include "foundation/LockedPages.h"
#include "foundation/Thread.h"
#include "tests/host/HeapCount.h"
#include "tests/support/TestHost.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace velorine::test {
namespace {

struct Play {
    const char* name;
    int rate;
    int channels;
    int bits;
    int outputBits;
    bool shaped;
    bool processed = false; ///< with the processor and the resampler on
};

class SteadyState : public testing::TestWithParam<Play> {};

/// Counts what all threads but the host's do to the heap, once a host has played for long enough
/// that the lead stands at its limit.
TEST_P(SteadyState, PumpsWithoutTheHeapAndWithoutNewPages) {
    if (!HeapCount::works()) GTEST_SKIP() << "the heap belongs to a sanitizer";

    const Play& play = GetParam();
    TestHost::Setup setup;
    setup.withSound = false; // the test device keeps what was heard, on the heap
    setup.settings.push_back({"Output", "bits", static_cast<std::uint32_t>(play.outputBits), {}});
    setup.settings.push_back({"Output", "noiseshaping", play.shaped ? 1u : 0u, {}});
    setup.kestrix = play.processed;
    setup.settings.push_back({"Resample", "enable", play.processed ? 1u : 0u, {}});
    TestHost host{setup};
    HeapCount::leaveOutCaller();
    host.open(play.rate, play.channels, play.bits);
    std::vector<char> data(9216);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<char>(40 + i % 50);

    const auto playFor = [&](std::int64_t ms, int writes) {
        const std::int64_t end = host.clock.ticks() + ms * 10'000;
        while (host.clock.ticks() < end || writes > 0) {
            if (host.writeOnce(data.data(), data.size()) > 0)
                --writes;
            else
                host.advance(5);
        }
    };
    playFor(30'000, 0);
    ASSERT_GT(moduleStatus().queueMs, 1300) << "the lead stands at its limit";

    const long heapBefore = HeapCount::calls();
    const long pagesBefore = LockedPages::systemCalls();
    playFor(30'000, 1100); // each write is a step of the pump at least
    EXPECT_EQ(HeapCount::calls() - heapBefore, 0);
    EXPECT_EQ(LockedPages::systemCalls() - pagesBefore, 0);
}

INSTANTIATE_TEST_SUITE_P(Plays, SteadyState,
                         testing::Values(Play{"AsItIs", 44100, 2, 16, 1, false},
                                         Play{"Converted", 44100, 2, 16, 24, false},
                                         Play{"Dithered", 48000, 2, 24, 16, false},
                                         Play{"Shaped", 48000, 2, 64, 16, true},
                                         Play{"Double", 96000, 2, 64, 1, false},
                                         Play{"Surround", 48000, 6, 24, 16, true},
                                         Play{"Mono", 8000, 1, 8, 1, false},
                                         Play{"Fast", 192000, 2, 32, 16, true},
                                         Play{"Processed", 44100, 2, 16, 16, false, true},
                                         Play{"ProcessedFast", 96000, 2, 64, 24, true, true}),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(HeapCountTest, SeesTheCallsOfOtherThreads) {
    if (!HeapCount::works()) GTEST_SKIP() << "the heap belongs to a sanitizer";
    struct Taker final : Thread {
        Taker() { start(false); }
        ~Taker() override { join(); }
        std::uint32_t run() override {
            const long before = HeapCount::calls();
            auto block = std::make_unique<int>(5);
            asm volatile("" : : "g"(block.get()) : "memory");
            block.reset();
            EXPECT_GE(HeapCount::calls() - before, 2);
            return 0;
        }
    };
    const Taker taker;
}

} // namespace
} // namespace velorine::test
