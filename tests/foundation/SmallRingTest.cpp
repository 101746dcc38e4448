#include "foundation/SmallRing.h"

#include <gtest/gtest.h>

#include <deque>
#include <random>

namespace velorine::test {

namespace {

TEST(SmallRing, GrowsFromSixToTwiceTheCountAndSix) {
    SmallRing<int> ring;
    EXPECT_EQ(ring.capacity(), 0);
    for (int i = 1; i <= 43; ++i) {
        ring.push(i);
        EXPECT_EQ(ring.capacity(), i <= 6 ? 6 : i <= 18 ? 18 : i <= 42 ? 42 : 90) << "push " << i;
    }
    for (int i = 0; i < 43; ++i)
        EXPECT_EQ(ring.at(i), i + 1);
}

TEST(SmallRing, KeepsItsOrderWhenItGrowsPastItsSeam) {
    SmallRing<int> ring;
    for (int i = 0; i < 6; ++i)
        ring.push(i);
    ring.pop();
    ring.pop();
    ring.push(6);
    ring.push(7); // wrapped around
    EXPECT_EQ(ring.capacity(), 6);
    ring.push(8);
    EXPECT_EQ(ring.capacity(), 18);
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(ring.at(i), i + 2);
}

TEST(SmallRing, OwnRecordMayBePushed) {
    SmallRing<std::int64_t> ring;
    ring.push(77);
    for (int i = 0; i < 100; ++i)
        ring.push(ring.at(0));
    for (int i = 0; i < ring.count(); ++i)
        EXPECT_EQ(ring.at(i), 77);
}

TEST(SmallRing, AgreesWithADeque) {
    SmallRing<unsigned> ring;
    std::deque<unsigned> model;
    std::mt19937 random{1};
    for (int step = 0; step < 5000; ++step) {
        const unsigned what = random() % 8;
        if (what < 4 || model.empty()) {
            ring.push(static_cast<unsigned>(step));
            model.push_back(static_cast<unsigned>(step));
        } else if (what < 6) {
            ring.pop();
            model.pop_front();
        } else if (what < 7) {
            ring.popNewest();
            model.pop_back();
        } else if (random() % 50 == 0) {
            ring.clear();
            model.clear();
        }
        ASSERT_EQ(ring.count(), static_cast<int>(model.size()));
        for (int i = 0; i < ring.count(); ++i)
            ASSERT_EQ(ring.at(i), model[static_cast<std::size_t>(i)]);
        ASSERT_TRUE(model.empty() || ring.newest() == model.back());
    }
}

} // namespace

} // namespace velorine::test
