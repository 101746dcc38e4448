#include "foundation/FxArena.h"

#include "foundation/LockedPages.h"
#include "tests/foundation/RawThread.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#ifndef VELORINE_KEEP_FREED_BLOCKS
#define VELORINE_KEEP_FREED_BLOCKS 1
#endif

namespace velorine::test {

namespace {

constexpr int standardPage = 196'608 - 64; ///< usable bytes
constexpr int smallPage = 229'376 - 64;    ///< the same, made for up to 32 KiB

FxBufferRef allocated(FxArena& arena, int bytes) {
    FxBufferRef buffer;
    buffer.allocate(arena, bytes);
    return buffer;
}

TEST(FxArena, PageHasRoomForTheRequestAnd192KiBOfOthers) {
    struct Case {
        int bytes;
        int page;
    };
    for (const Case c :
         {Case{0, 196'608}, Case{1, 229'376}, Case{32'768, 229'376}, Case{32'769, 262'144},
          Case{196'544, 393'216}, Case{1'000'000, 1'212'416}}) {
        FxArena arena;
        EXPECT_EQ(arena.totalBytes(), 0);
        const FxBufferRef buffer = allocated(arena, c.bytes);
        EXPECT_NE(buffer.data(), nullptr);
        EXPECT_EQ(arena.totalBytes(), c.page - 64) << c.bytes;
        EXPECT_EQ(arena.liveBytes(), c.bytes);
    }
}

TEST(FxArena, PageIsFilledToItsLastByte) {
    FxArena arena;
    const FxBufferRef opener = allocated(arena, 0);
    const FxBufferRef rest = allocated(arena, standardPage);
    EXPECT_EQ(arena.totalBytes(), standardPage);
    EXPECT_EQ(arena.usedBytes(), standardPage);
    const FxBufferRef more = allocated(arena, 1);
    EXPECT_EQ(arena.totalBytes(), standardPage + smallPage);
}

TEST(FxArena, BuffersFollowEachOther16BytesAligned) {
    FxArena arena;
    const FxBufferRef a = allocated(arena, 1);
    const FxBufferRef b = allocated(arena, 16);
    const FxBufferRef c = allocated(arena, 17);
    const FxBufferRef d = allocated(arena, 100);
    EXPECT_EQ(a.get()->offset, 0);
    EXPECT_EQ(b.get()->offset, 16);
    EXPECT_EQ(c.get()->offset, 32);
    EXPECT_EQ(d.get()->offset, 64);
    EXPECT_EQ(arena.usedBytes(), 176);
    EXPECT_EQ(arena.liveBytes(), 134);
    for (const FxBufferRef* buffer : {&a, &b, &c, &d})
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(buffer->data()) % 16, 0u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(a.data()) % 64, 0u);
}

TEST(FxArena, PageThatNobodyUsesStartsOver) {
    FxArena arena;
    FxBufferRef a = allocated(arena, 1000);
    FxBufferRef b = allocated(arena, 1000);
    const std::byte* const first = a.data();
    a = {};
    EXPECT_EQ(allocated(arena, 10).get()->offset, 2016); // b still holds the page
    b = {};
    EXPECT_EQ(arena.liveBytes(), 0);
    const FxBufferRef c = allocated(arena, 500);
    EXPECT_EQ(c.get()->offset, 0);
    EXPECT_EQ(c.data(), first);
    EXPECT_EQ(arena.usedBytes(), 512);
    EXPECT_EQ(arena.totalBytes(), smallPage);
}

TEST(FxArena, FullPageGoesWithItsLastBlock) {
    FxArena arena;
    FxBufferRef held = allocated(arena, 1000);
    std::memset(held.data(), 0x5a, 1000);
    const FxBufferRef next = allocated(arena, 300'000);
    constexpr int largePage = ((300'000 + 0x37FFF) & ~0x7FFF) - 64;
    EXPECT_EQ(arena.totalBytes(), smallPage + largePage);
    EXPECT_EQ(next.get()->offset, 0);
    EXPECT_EQ(held.data()[999], std::byte{0x5a});
    held = {};
    EXPECT_EQ(arena.totalBytes(), largePage);
    EXPECT_EQ(arena.liveBytes(), 300'000);
}

TEST(FxArena, FullPageThatNobodyUsesGoesAtOnce) {
    FxArena arena;
    { const FxBufferRef gone = allocated(arena, 1000); }
    const FxBufferRef next = allocated(arena, 300'000);
    EXPECT_EQ(arena.totalBytes(), ((300'000 + 0x37FFF) & ~0x7FFF) - 64);
}

TEST(FxArena, BufferGivesItsBytesBackBeforeItGetsNewOnes) {
    FxArena arena;
    FxBufferRef buffer = allocated(arena, 1000);
    buffer.allocate(arena, 2000);
    EXPECT_EQ(arena.liveBytes(), 2000);
    EXPECT_EQ(buffer.get()->offset, 0); // nobody else was in the page
    EXPECT_EQ(buffer.bytes(), 2000);
}

TEST(FxArena, BufferMayMoveToAnotherArena) {
    FxArena first;
    FxArena second;
    FxBufferRef buffer = allocated(first, 1000);
    buffer.allocate(second, 500);
    EXPECT_EQ(first.liveBytes(), 0);
    EXPECT_EQ(second.liveBytes(), 500);
    buffer = {};
    EXPECT_EQ(second.liveBytes(), 0);
}

TEST(FxArena, TrimGivesUpAPageThatNobodyUses) {
    FxArena arena;
    FxBufferRef buffer = allocated(arena, 100);
    arena.trim();
    EXPECT_EQ(arena.totalBytes(), smallPage);
    buffer = {};
    arena.trim();
    EXPECT_EQ(arena.totalBytes(), 0);
    EXPECT_EQ(arena.usedBytes(), 0);
    arena.trim();
    EXPECT_EQ(allocated(arena, 100).get()->offset, 0);
}

TEST(FxArena, SteadyStreamMapsNoMemory) {
    if (VELORINE_KEEP_FREED_BLOCKS == 0) GTEST_SKIP() << "this build gives every run back";
    FxArena arena;
    std::vector<FxBufferRef> queue(200);
    const auto stream = [&](int blocks) {
        for (int i = 0; i < blocks; ++i)
            queue[static_cast<std::size_t>(i) % queue.size()] = allocated(arena, 9216);
    };
    stream(1000);
    const long warm = LockedPages::systemCalls();
    stream(5000);
    EXPECT_EQ(LockedPages::systemCalls(), warm);
}

// Whatever is allocated and released, by two threads at once: bytes don't overlap, and are counted.
TEST(FxArena, CountsAndKeepsApartWhatTwoThreadsUse) {
    FxArena arena;
    const auto use = [&arena](unsigned seed) {
        std::mt19937 random{seed};
        std::vector<FxBufferRef> held(40);
        const auto markOf = [&](std::size_t i) { return static_cast<std::byte>(seed * 64 + i); };
        for (int step = 0; step < 3000; ++step) {
            const std::size_t i = random() % held.size();
            if (held[i]) {
                for (int k = 0; k < held[i].bytes(); k += 61)
                    ASSERT_EQ(held[i].data()[k], markOf(i));
            }
            if (random() % 3 == 0) {
                held[i] = {};
                continue;
            }
            if (random() % 4 == 0) held[i] = {}; // or the old holder gets new bytes
            const int bytes = static_cast<int>(random() % 20'000);
            void* const samples = held[i].allocate(arena, bytes);
            ASSERT_EQ(reinterpret_cast<std::uintptr_t>(samples) % 16, 0u);
            std::memset(samples, static_cast<int>(markOf(i)), static_cast<std::size_t>(bytes));
        }
    };
    {
        const RunningThread first{[&] { use(1); }};
        const RunningThread second{[&] { use(2); }};
    }
    EXPECT_EQ(arena.liveBytes(), 0);
    arena.trim();
    EXPECT_EQ(arena.totalBytes(), 0);
}

TEST(FxArena, LiveIsTheSumOfWhatIsHeld) {
    FxArena arena;
    std::mt19937 random{5};
    std::vector<FxBufferRef> held(30);
    for (int step = 0; step < 5000; ++step) {
        const std::size_t i = random() % held.size();
        held[i] = random() % 3 == 0 ? FxBufferRef{}
                                    : allocated(arena, static_cast<int>(random() % 50'000));
        if (random() % 100 == 0) arena.trim();
        int sum = 0;
        for (const FxBufferRef& buffer : held)
            sum += buffer.bytes();
        ASSERT_EQ(arena.liveBytes(), sum);
        ASSERT_LE(arena.usedBytes(), arena.totalBytes());
    }
}

TEST(FxBufferRef, CopiesShareTheSamples) {
    FxArena arena;
    FxBufferRef a = allocated(arena, 100);
    EXPECT_FALSE(a.isShared());
    {
        const FxBufferRef b = a;
        EXPECT_TRUE(a.isShared());
        EXPECT_EQ(b.data(), a.data());
        EXPECT_EQ(arena.liveBytes(), 100);
    }
    EXPECT_FALSE(a.isShared());
    const FxBufferRef c = std::move(a);
    EXPECT_FALSE(c.isShared());
    EXPECT_EQ(arena.liveBytes(), 100);
}

TEST(FxBufferRef, RenewKeepsAHolderThatNobodyShares) {
    FxArena arena;
    FxBufferRef a;
    EXPECT_FALSE(a);
    EXPECT_EQ(a.data(), nullptr);
    a.renew();
    const FxBuffer* const own = a.get();
    EXPECT_NE(own, nullptr);
    a.renew();
    EXPECT_EQ(a.get(), own);
    const FxBufferRef b = a;
    a.renew();
    EXPECT_NE(a.get(), own);
    EXPECT_EQ(b.get(), own);
    EXPECT_FALSE(b.isShared());
}

TEST(FxBufferRef, MayBeAssignedToItself) {
    FxArena arena;
    FxBufferRef a = allocated(arena, 100);
    a = *&a;
    EXPECT_FALSE(a.isShared());
    EXPECT_EQ(arena.liveBytes(), 100);
}

} // namespace

} // namespace velorine::test
