#include "tests/journeys/Journey.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace velorine::test {
namespace {

constexpr int batches = 10;

#if defined(__SANITIZE_THREAD__)
constexpr int journeysOfABatch = 20;
constexpr TestClock::Mode mode = TestClock::Mode::parallel;
#elif defined(__SANITIZE_ADDRESS__)
constexpr int journeysOfABatch = 100;
constexpr TestClock::Mode mode = TestClock::Mode::serial;
#else
constexpr int journeysOfABatch = VELORINE_JOURNEYS;
constexpr TestClock::Mode mode = TestClock::Mode::serial;
#endif

class RandomJourney : public testing::TestWithParam<int> {};

TEST_P(RandomJourney, IsHeardInOrderWithNothingLostAndNothingTwice) {
    for (int i = 0; i < journeysOfABatch; ++i) {
        const auto seed = static_cast<std::uint32_t>(GetParam() * 100'000 + i + 1);
        // Every other journey lets the order of the threads vary.
        const std::uint32_t clockSeed = i % 2 == 0 ? 0 : seed;
        const Journey journey = Journey::random(seed);
        const std::string fault = playJourney(journey, mode, clockSeed);
        if (fault.empty()) continue;
        const Journey shortest = shrunk(journey, mode, clockSeed);
        FAIL() << "VELORINE_JOURNEY='" << shortest.text() << "' VELORINE_CLOCK_SEED=" << clockSeed
               << " plays it again\n"
               << playJourney(shortest, mode, clockSeed) << "at first, seed " << seed << ":\n"
               << fault;
    }
}

INSTANTIATE_TEST_SUITE_P(Batches, RandomJourney, testing::Range(0, batches));

/// Plays the journey that a failure printed.
TEST(ReplayedJourney, IsHeardInOrder) {
    const char* const text = std::getenv("VELORINE_JOURNEY");
    if (!text) GTEST_SKIP() << "VELORINE_JOURNEY names none";
    const char* const seed = std::getenv("VELORINE_CLOCK_SEED");
    const std::uint32_t clockSeed =
        seed ? static_cast<std::uint32_t>(std::strtoul(seed, nullptr, 10)) : 0;
    EXPECT_EQ(playJourney(Journey::fromText(text), mode, clockSeed), "");
}

TEST(JourneyText, ReadsBackWhatItWrote) {
    const Journey journey = Journey::random(3);
    EXPECT_EQ(Journey::fromText(journey.text()).text(), journey.text());
    EXPECT_FALSE(journey.steps.empty());
}

} // namespace
} // namespace velorine::test
