#include "foundation/DynArray.h"

#include <gtest/gtest.h>

#include <array>
#include <utility>

namespace velorine::test {

namespace {

DynArray<int> ofCapacity300() {
    DynArray<int> array;
    array.reserve(300); // a jump from nothing: exactly that
    array.resize(300);
    return array;
}

TEST(DynArray, GrowsByAnEighthAnd32) {
    DynArray<int> array;
    EXPECT_EQ(array.capacity(), 0);
    EXPECT_EQ(array.data(), nullptr);
    for (int i = 1; i <= 72; ++i) {
        array.push(i);
        const int expected = i == 1 ? 1 : i <= 34 ? 34 : i <= 71 ? 71 : 72 + 9 + 32;
        EXPECT_EQ(array.capacity(), expected) << "push " << i;
    }
    for (int i = 0; i < 72; ++i)
        EXPECT_EQ(array[i], i + 1);
}

TEST(DynArray, JumpBeyondFourTimesTheCountGetsExactlyThat) {
    DynArray<int> array;
    array.resize(10);
    EXPECT_EQ(array.capacity(), 10);
    array.resize(41);
    EXPECT_EQ(array.capacity(), 41);
    array.resize(164); // four times the count is no jump yet
    EXPECT_EQ(array.capacity(), 164 + 20 + 32);
}

TEST(DynArray, LargeArrayThatLostMoreThanHalfShrinks) {
    struct Case {
        int wanted;
        int capacity;
    };
    for (const Case c : {Case{100, 125}, Case{149, 186}, Case{150, 300}, Case{300, 300}}) {
        DynArray<int> array = ofCapacity300();
        for (int i = 0; i < 300; ++i)
            array[i] = i;
        array.resize(c.wanted);
        EXPECT_EQ(array.capacity(), c.capacity) << c.wanted;
        EXPECT_EQ(array[c.wanted - 1], c.wanted - 1);
    }
}

TEST(DynArray, SmallArrayKeepsItsRoom) {
    DynArray<int> array;
    array.resize(256);
    array.resize(10);
    EXPECT_EQ(array.capacity(), 256);
    array.resize(0);
    EXPECT_EQ(array.capacity(), 256);
}

TEST(DynArray, LargeArrayThatLostEverythingIsFreed) {
    DynArray<int> array = ofCapacity300();
    array.resize(0);
    EXPECT_EQ(array.capacity(), 0);
    EXPECT_EQ(array.data(), nullptr);
    array.push(5);
    EXPECT_EQ(array[0], 5);
}

TEST(DynArray, RuleIsTheSameForEveryElementSize) {
    struct Large {
        std::array<char, 1000> bytes;
    };
    DynArray<Large> array;
    array.push({});
    EXPECT_EQ(array.capacity(), 1);
    array.push({});
    EXPECT_EQ(array.capacity(), 34);
}

TEST(DynArray, ReserveLeavesTheElementsTheirRoom) {
    DynArray<int> array = ofCapacity300();
    array[299] = 7;
    array.reserve(10);
    EXPECT_EQ(array.count(), 300);
    EXPECT_GE(array.capacity(), 300);
    EXPECT_EQ(array[299], 7);
}

TEST(DynArray, ReservedRoomServesThePushes) {
    DynArray<int> array;
    array.reserve(1000);
    const int* const before = array.data();
    for (int i = 0; i < 1000; ++i)
        array.push(i);
    EXPECT_EQ(array.data(), before);
    EXPECT_EQ(array.capacity(), 1000);
}

TEST(DynArray, NewElementsAreZero) {
    DynArray<int> array;
    array.resize(20);
    for (int i = 0; i < 20; ++i)
        array[i] = -1;
    array.resize(3);
    array.resize(20);
    EXPECT_EQ(array[2], -1);
    for (int i = 3; i < 20; ++i)
        EXPECT_EQ(array[i], 0);
}

TEST(DynArray, OwnElementMayBePushed) {
    DynArray<int> array;
    array.push(42);
    for (int i = 0; i < 100; ++i)
        array.push(array[0]);
    for (const int value : array)
        EXPECT_EQ(value, 42);
}

TEST(DynArray, MovesWithItsElements) {
    DynArray<int> from;
    from.push(1);
    DynArray<int> to{std::move(from)};
    EXPECT_EQ(to.count(), 1);
    DynArray<int> other;
    other.push(8);
    other.push(9);
    to = std::move(other);
    EXPECT_EQ(to.count(), 2);
    EXPECT_EQ(to[1], 9);
}

} // namespace

} // namespace velorine::test
