#include "foundation/FlaggedEvent.h"

#include "tests/foundation/EveryKernel.h"
#include "tests/foundation/RawThread.h"

#include <gtest/gtest.h>

namespace velorine::test {

namespace {

class FlaggedEventTest : public EveryKernel {};

TEST_P(FlaggedEventTest, StaysSetUntilReset) {
    FlaggedEvent event;
    EXPECT_FALSE(event.isSet());
    EXPECT_FALSE(event.wait(0));
    event.set();
    event.set();
    EXPECT_TRUE(event.isSet());
    EXPECT_TRUE(event.wait(0));
    EXPECT_TRUE(event.wait());
    event.reset();
    event.reset();
    EXPECT_FALSE(event.isSet());
    EXPECT_FALSE(event.wait(1));
    event.set();
    EXPECT_TRUE(event.wait(0));
}

TEST_P(FlaggedEventTest, WakesAThreadThatWaits) {
    FlaggedEvent ask;
    FlaggedEvent answer;
    RunningThread thread{[&] {
        ask.wait();
        answer.set();
    }};
    ask.set();
    EXPECT_TRUE(answer.wait());
}

TEST_P(FlaggedEventTest, FirstOfSeveralInTheOrderGiven) {
    FlaggedEvent stop;
    FlaggedEvent wake;
    FlaggedEvent third;
    EXPECT_EQ(waitForFirst(0, stop, wake, third), Kernel::timedOut);
    EXPECT_EQ(waitForFirst(1, stop, wake, third), Kernel::timedOut);
    third.set();
    EXPECT_EQ(waitForFirst(Kernel::forever, stop, wake, third), 2);
    wake.set();
    EXPECT_EQ(waitForFirst(Kernel::forever, stop, wake, third), 1);
    stop.set();
    EXPECT_EQ(waitForFirst(Kernel::forever, stop, wake, third), 0);
    stop.reset();
    wake.reset();
    EXPECT_EQ(waitForFirst(Kernel::forever, stop, wake, third), 2);
}

TEST_P(FlaggedEventTest, SeveralAtOnceWakeOnAny) {
    FlaggedEvent stop;
    FlaggedEvent wake;
    RunningThread thread{[&] { wake.set(); }};
    EXPECT_EQ(waitForFirst(Kernel::forever, stop, wake), 1);
}

// Who sets and who resets work on flag and handle: neither may be left behind by the other.
TEST_P(FlaggedEventTest, FlagAndHandleStayTogether) {
    FlaggedEvent event;
    {
        RunningThread setter{[&] {
            for (int i = 0; i < 2000; ++i)
                event.set();
        }};
        RunningThread resetter{[&] {
            for (int i = 0; i < 2000; ++i)
                event.reset();
        }};
    }
    const Kernel::Handle handle = event.native();
    const bool handleSet = kernel().waitAny({&handle, 1}, 0) == 0;
    EXPECT_EQ(event.isSet(), handleSet);
}

INSTANTIATE_TEST_SUITE_P(Every, FlaggedEventTest, everyKernel, kernelName);

TEST(FlaggedEvent, IsTestedBeforeAnythingIsAskedOfTheKernel) {
    TestClock clock;
    FlaggedEvent other;
    FlaggedEvent event;
    event.set();
    kernel().resetEvent(event.native()); // a wait on the handle would find nothing
    EXPECT_TRUE(event.wait(0));
    EXPECT_EQ(waitForFirst(0, other, event), 1);
    EXPECT_EQ(clock.ticks(), 0);
}

} // namespace

} // namespace velorine::test
