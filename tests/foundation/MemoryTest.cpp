#include "foundation/Memory.h"

#include "tests/foundation/ErrorList.h"
#include "tests/foundation/RawThread.h"
#include "tests/support/TestClock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#ifndef VELORINE_KEEP_FREED_BLOCKS
#define VELORINE_KEEP_FREED_BLOCKS 1
#endif

namespace velorine::test {

namespace {

/// The heap, with a count of what is taken, that can run dry and be asked for more than it has.
class TestHeap final : public HeapSource {
public:
    TestHeap() { install(this); }
    ~TestHeap() override { install(nullptr); }

    void* allocate(std::size_t bytes) override {
        ++calls;
        asked = bytes;
        if (refusals > 0) {
            --refusals;
            return nullptr;
        }
        return std::malloc(bytes > mostBytes ? mostBytes : bytes); // enough for the block's head
    }
    void release(void* block) override {
        ++calls;
        std::free(block);
    }

    std::atomic<int> calls{0};
    std::size_t asked = 0;
    std::size_t mostBytes = std::size_t{16} << 20;
    int refusals = 0;
};

bool isAligned(const void* block) {
    return reinterpret_cast<std::uintptr_t>(block) % 64 == 0;
}

TEST(Memory, BlocksOfEverySizeAreAlignedAndWhole) {
    std::vector<std::size_t> sizes;
    for (std::size_t size = 1; size <= 600; ++size)
        sizes.push_back(size);
    for (std::size_t power = 1024; power <= (std::size_t{8} << 20); power *= 2)
        for (const std::size_t step :
             {power - 1, power, power + 1, power + power / 4, power * 3 / 2})
            sizes.push_back(step);

    std::vector<std::unique_ptr<std::byte, MemDeleter>> blocks;
    for (int round = 0; round < 2; ++round) { // the second time from the blocks that were kept
        for (std::size_t i = 0; i < sizes.size(); ++i) {
            blocks.emplace_back(static_cast<std::byte*>(memAlloc(sizes[i])));
            ASSERT_TRUE(isAligned(blocks.back().get())) << sizes[i];
            std::memset(blocks.back().get(), static_cast<int>(i % 251), sizes[i]);
        }
        for (std::size_t i = 0; i < sizes.size(); ++i) {
            const auto mark = static_cast<std::byte>(i % 251);
            EXPECT_EQ(blocks[i].get()[0], mark) << sizes[i];
            EXPECT_EQ(blocks[i].get()[sizes[i] - 1], mark) << sizes[i];
        }
        blocks.clear();
    }
}

TEST(Memory, NothingIsANullBlock) {
    EXPECT_EQ(memAlloc(0), nullptr);
    memFree(nullptr);
    EXPECT_EQ(memRealloc(nullptr, 0), nullptr);
    EXPECT_EQ(memRealloc(memAlloc(10), 0), nullptr);
}

TEST(Memory, ReallocKeepsWhatFits) {
    auto* block = static_cast<unsigned char*>(memRealloc(nullptr, 100));
    ASSERT_TRUE(isAligned(block));
    for (unsigned i = 0; i < 100; ++i)
        block[i] = static_cast<unsigned char>(i);
    for (const std::size_t size : {5000u, 200'000u, 100u, 60u}) {
        block = static_cast<unsigned char*>(memRealloc(block, size));
        ASSERT_TRUE(isAligned(block));
        for (unsigned i = 0; i < 60; ++i)
            ASSERT_EQ(block[i], i) << size;
        ASSERT_EQ(block[std::min<std::size_t>(size, 100) - 1], size < 100 ? 59 : 99);
    }
    memFree(block);
}

TEST(Memory, EmptyHeapIsAskedAgainEvery100Ms) {
    TestClock clock;
    TestHeap heap;
    heap.refusals = 7;
    void* const block = memAlloc(5000);
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(clock.ticks(), 7 * 1'000'000);
    heap.refusals = 2;
    void* const moved = memRealloc(block, 9000);
    EXPECT_NE(moved, nullptr);
    EXPECT_EQ(clock.ticks(), 9 * 1'000'000);
    memFree(moved);
}

TEST(Memory, BigAllocationWarnsAndGoesOn) {
    ErrorList errors;
    TestHeap heap;
    heap.mostBytes = 256; // the rest isn't touched
    memFree(memAlloc(134'217'727));
    EXPECT_TRUE(errors.texts.empty());

    void* const block = memAlloc(134'217'728);
    EXPECT_NE(block, nullptr);
    EXPECT_GE(heap.asked, 134'217'728u);
    memFree(block);
    ASSERT_EQ(errors.texts.size(), 1u);
    EXPECT_EQ(errors.texts[0], "MemAlloc : alloc size big (134217728 bytes)\n");
}

TEST(MemoryDeathTest, SizeThatWrapsAroundIsMoreThanTheHeapEverHas) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            TestClock clock;
            ErrorList errors;
            const RunningThread watch{[] {
                kernel().sleep(3'600'000);
                std::_Exit(7); // still nothing after an hour
            }};
            memAlloc(SIZE_MAX - 8);
            std::_Exit(8); // it was handed out
        },
        testing::ExitedWithCode(7), "");
}

TEST(Memory, SteadyStreamOfBlocksLeavesTheHeapAlone) {
    if (VELORINE_KEEP_FREED_BLOCKS == 0) GTEST_SKIP() << "this build gives every block back";
    TestHeap heap;
    const auto oneRound = [] {
        std::vector<std::unique_ptr<std::byte, MemDeleter>> blocks;
        for (const std::size_t size : {20u, 64u, 65u, 700u, 4096u, 5000u, 40'000u, 300'000u})
            blocks.emplace_back(static_cast<std::byte*>(memAlloc(size)));
    };
    oneRound();
    const int warm = heap.calls;
    EXPECT_GT(warm, 0);
    for (int i = 0; i < 1000; ++i)
        oneRound();
    EXPECT_EQ(heap.calls, warm);
}

TEST(Memory, ThreadsShareIt) {
    std::vector<std::unique_ptr<RunningThread>> threads;
    for (unsigned t = 0; t < 4; ++t) {
        threads.push_back(std::make_unique<RunningThread>([t] {
            for (std::size_t i = 0; i < 2000; ++i) {
                const std::size_t size = 1 + (i * 37 + t) % 900;
                auto* const block = static_cast<unsigned char*>(memAlloc(size));
                std::memset(block, static_cast<int>(t), size);
                for (std::size_t k = 0; k < size; ++k)
                    ASSERT_EQ(block[k], t);
                memFree(block);
            }
        }));
    }
}

} // namespace

} // namespace velorine::test
