#include "foundation/LockedPages.h"

#include "tests/foundation/ErrorList.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#ifndef VELORINE_KEEP_FREED_BLOCKS
#define VELORINE_KEEP_FREED_BLOCKS 1
#endif

namespace velorine::test {

namespace {

TEST(LockedPages, AreWholePagesThatMayBeWritten) {
    for (const std::size_t bytes : {1u, 4096u, 4097u, 229'376u}) {
        const LockedPages pages{bytes};
        EXPECT_GE(pages.bytes().size(), bytes);
        EXPECT_LT(pages.bytes().size(), bytes + 4096);
        EXPECT_EQ(pages.bytes().size() % 4096, 0u);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(pages.bytes().data()) % 4096, 0u);
        std::memset(pages.bytes().data(), 0xa5, pages.bytes().size());
    }
}

TEST(LockedPages, MoveTakesTheRun) {
    LockedPages empty;
    EXPECT_TRUE(empty.bytes().empty());
    EXPECT_FALSE(empty.pinned());
    LockedPages pages{4096};
    const std::byte* const first = pages.bytes().data();
    const bool pinned = pages.pinned();
    LockedPages moved{std::move(pages)};
    EXPECT_EQ(moved.bytes().data(), first);
    EXPECT_EQ(moved.pinned(), pinned);
    empty = std::move(moved);
    EXPECT_EQ(empty.bytes().data(), first);
    EXPECT_EQ(empty.pinned(), pinned);
}

TEST(LockedPages, SteadyStreamMapsNoMemory) {
    if (VELORINE_KEEP_FREED_BLOCKS == 0) GTEST_SKIP() << "this build gives every run back";
    const auto oneRound = [] {
        std::vector<LockedPages> runs;
        for (const std::size_t bytes : {229'376u, 229'376u, 196'608u, 262'144u, 1'048'576u})
            runs.emplace_back(bytes);
    };
    oneRound();
    const long warm = LockedPages::systemCalls();
    for (int i = 0; i < 100; ++i)
        oneRound();
    EXPECT_EQ(LockedPages::systemCalls(), warm);
}

TEST(LockedPages, SizesOfThePastMakeRoom) {
    if (VELORINE_KEEP_FREED_BLOCKS == 0) GTEST_SKIP() << "this build gives every run back";
    for (std::size_t i = 1; i <= 40; ++i)
        const LockedPages once{i * 4096};
    { const LockedPages standard{229'376}; }
    const long warm = LockedPages::systemCalls();
    for (int i = 0; i < 100; ++i)
        const LockedPages standard{229'376};
    EXPECT_EQ(LockedPages::systemCalls(), warm);
}

TEST(LockedPages, LargeRunsAreGivenBackAtOnce) {
    const long before = LockedPages::systemCalls();
    { const LockedPages large{(std::size_t{1} << 20) + 1}; }
    EXPECT_EQ(LockedPages::systemCalls(), before + 2);
}

TEST(LockedPages, BigRunWarnsAndGoesOn) {
    ErrorList errors;
    { const LockedPages pages{134'217'727}; }
    EXPECT_TRUE(errors.texts.empty());
    { const LockedPages pages{134'217'728}; }
    ASSERT_EQ(errors.texts.size(), 1u);
    EXPECT_EQ(errors.texts[0], "VMemAlloc : alloc size big (134217728 bytes)\n");
}

TEST(LockedPages, RefusalIsFatal) {
    ErrorList errors; // it warns first
    try {
        const LockedPages pages{SIZE_MAX / 2};
        FAIL();
    } catch (const char* text) {
        EXPECT_STREQ(text, "VMemAlloc : VirtualAlloc() failed");
    }
}

} // namespace

} // namespace velorine::test
