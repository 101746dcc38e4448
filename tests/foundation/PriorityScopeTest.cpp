#include "foundation/PriorityScope.h"

#include "tests/support/TestClock.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace velorine::test {

namespace {

TEST(PriorityScope, PutsTheOldPriorityBack) {
    TestClock clock;
    kernel().setCurrentPriority(priorityHighest);
    {
        const PriorityScope outer{priorityTimeCritical};
        EXPECT_EQ(kernel().currentPriority(), 15);
        {
            const PriorityScope inner{priorityIdle};
            EXPECT_EQ(kernel().currentPriority(), -15);
        }
        EXPECT_EQ(kernel().currentPriority(), 15);
    }
    EXPECT_EQ(kernel().currentPriority(), 2);
}

TEST(PriorityScope, ExceptionPutsItBack) {
    TestClock clock;
    const auto throwInside = [] {
        const PriorityScope scope{priorityHighest};
        throw std::runtime_error("from inside");
    };
    EXPECT_THROW(throwInside(), std::runtime_error);
    EXPECT_EQ(kernel().currentPriority(), 0);
}

TEST(PriorityScope, MayBeGivenBackEarly) {
    TestClock clock;
    PriorityScope scope{priorityHighest};
    scope.giveBack();
    EXPECT_EQ(kernel().currentPriority(), 0);
    scope.giveBack();
    EXPECT_EQ(kernel().currentPriority(), 0);
}

TEST(PriorityScope, AtLeastRaisesAndNeverLowers) {
    TestClock clock;
    EXPECT_EQ(PriorityScope::atLeast(priorityHighest), 2);
    const PriorityScope scope{priorityTimeCritical};
    EXPECT_EQ(PriorityScope::atLeast(priorityHighest), 15);
    EXPECT_EQ(kernel().currentPriority(), 15);
}

} // namespace

} // namespace velorine::test
