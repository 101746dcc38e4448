#include "foundation/RWLock.h"
#include "foundation/RecursiveLock.h"

#include <gtest/gtest.h>

namespace velorine::test {

namespace {

constexpr const char* outOfOrder = "lock of rank [0-9]+ taken while one of rank [0-9]+ is held";

/// Lock order is watched in debug builds.
class LockRankDeathTest : public testing::Test {
protected:
    void SetUp() override {
#ifdef NDEBUG
        GTEST_SKIP() << "lock order isn't watched in this build";
#endif
        GTEST_FLAG_SET(death_test_style, "threadsafe");
    }
};

TEST_F(LockRankDeathTest, LowerRankInsideAHigherOneAborts) {
    Lock ring{LockRank::ring};
    RecursiveLock pump{LockRank::pump};
    EXPECT_DEATH(
        {
            const Lock::Scope outer{ring};
            const RecursiveLock::Scope inner{pump};
        },
        outOfOrder);
}

TEST_F(LockRankDeathTest, TwoLocksOfOneRankAbort) {
    RWLock hostRing{LockRank::ring};
    RWLock deviceRing{LockRank::ring};
    EXPECT_DEATH(
        {
            const RWLock::ReadScope outer{hostRing};
            const RWLock::ReadScope inner{deviceRing};
        },
        outOfOrder);
}

TEST_F(LockRankDeathTest, ReaderThatWantsToWriteAborts) {
    RWLock lock{LockRank::ring};
    EXPECT_DEATH(
        {
            const RWLock::ReadScope outer{lock};
            const RWLock::WriteScope inner{lock};
        },
        outOfOrder);
}

TEST_F(LockRankDeathTest, AnythingInsideALeafAborts) {
    Lock leaf;
    Lock other;
    EXPECT_DEATH(
        {
            const Lock::Scope outer{leaf};
            const Lock::Scope inner{other};
        },
        outOfOrder);
}

TEST(LockRank, RisingOrderPassesInEveryKindOfLock) {
    RecursiveLock edit{LockRank::edit};
    RecursiveLock pump{LockRank::pump};
    RWLock ring{LockRank::ring};
    Lock leaf;
    for (int round = 0; round < 2; ++round) { // what was given back doesn't count any more
        const RecursiveLock::Scope a{edit};
        const RecursiveLock::Scope b{pump};
        const RecursiveLock::Scope again{edit}; // takes nothing, so its rank doesn't matter
        const RWLock::WriteScope c{ring};
        const RWLock::ReadScope nested{ring};
        const Lock::Scope d{leaf};
    }
}

TEST(LockRank, ScopeThatMovesDownPasses) {
    RecursiveLock high{LockRank::ring};
    RecursiveLock low{LockRank::pump};
    RecursiveLock::Scope scope{high};
    scope.moveTo(low); // the higher one is given back first
    EXPECT_TRUE(low.heldByCaller());
}

} // namespace

} // namespace velorine::test
