#include "foundation/FxBlock.h"

#include <gtest/gtest.h>

#include <cstring>

namespace velorine::test {

namespace {

constexpr SampleFormat stereo16{sampleType::int16, 2, 44100, fullWidth};

TEST(FxBlock, BeginsEmptyWithTheUsualFormat) {
    const FxBlock block;
    EXPECT_TRUE(block.empty());
    EXPECT_EQ(block.frames(), 0);
    EXPECT_EQ(block.format.type, 1);
    EXPECT_EQ(block.format.channels, 2);
    EXPECT_EQ(block.format.rate, 48000);
    EXPECT_EQ(block.format.layout, 256);
    EXPECT_EQ(block.timeStart, 0);
    EXPECT_EQ(block.timeEnd, 0);
    EXPECT_EQ(block.srcStart, 0);
    EXPECT_EQ(block.srcEnd, 0);
    EXPECT_EQ(block.posStart, 0);
    EXPECT_EQ(block.posEnd, 0);
    EXPECT_EQ(block.data(), nullptr);
}

TEST(FxBlock, AllocateMakesRoomOfItsOwn) {
    FxArena arena;
    FxBlock block;
    block.allocate(arena, stereo16, 100);
    EXPECT_EQ(block.frames(), 100);
    EXPECT_EQ(block.format, stereo16);
    EXPECT_EQ(arena.liveBytes(), 400);
    const FxBlock other = block;
    block.allocate(arena, stereo16, 10);
    EXPECT_NE(block.data(), other.data());
    EXPECT_EQ(arena.liveBytes(), 440);
}

TEST(FxBlock, ClearLeavesASharedBufferToTheOthers) {
    FxArena arena;
    FxBlock block;
    block.allocate(arena, stereo16, 100);
    block.timeEnd = 77;
    const FxBuffer* const own = block.buffer.get();
    block.clear();
    EXPECT_EQ(block.buffer.get(), own);
    EXPECT_TRUE(block.empty());
    EXPECT_EQ(block.timeEnd, 77);

    block.allocate(arena, stereo16, 100);
    const FxBlock other = block;
    block.clear();
    EXPECT_NE(block.buffer.get(), other.buffer.get());
    EXPECT_EQ(other.frames(), 100);
    EXPECT_EQ(arena.liveBytes(), 400);
}

TEST(FxBlock, WritableCopiesOnlyWhatIsShared) {
    FxArena arena;
    FxBlock block;
    auto* const samples = static_cast<std::uint32_t*>(block.allocate(arena, stereo16, 8));
    for (std::uint32_t i = 0; i < 8; ++i)
        samples[i] = i;
    block.first = 2;
    block.last = 6;
    EXPECT_EQ(block.writable(arena), samples + 2);

    const FxBlock other = block;
    auto* const own = static_cast<std::uint32_t*>(block.writable(arena));
    EXPECT_NE(own, samples + 2);
    EXPECT_EQ(block.first, 0);
    EXPECT_EQ(block.frames(), 4);
    EXPECT_EQ(arena.liveBytes(), 32 + 16);
    own[0] = 99;
    std::uint32_t theirs = 0;
    std::memcpy(&theirs, other.data(), sizeof theirs);
    EXPECT_EQ(theirs, 2u);
    EXPECT_EQ(own[3], 5u);
    EXPECT_EQ(block.writable(arena), own);
}

TEST(FxBlock, WritableEmptyBlockHasNothingToCopy) {
    FxArena arena;
    FxBlock block;
    block.allocate(arena, stereo16, 0);
    const FxBlock other = block;
    block.writable(arena);
    EXPECT_EQ(block.frames(), 0);
    EXPECT_FALSE(other.buffer.isShared());
}

TEST(FxBlock, TimeIsInterpolatedToTheNearestTick) {
    FxBlock block;
    block.posStart = 1000;
    block.posEnd = 2152;
    block.timeEnd = 261'224;
    EXPECT_EQ(block.timeAt(1000), 0);
    EXPECT_EQ(block.timeAt(1001), 227); // 226.757
    EXPECT_EQ(block.timeAt(1576), 130'612);
    EXPECT_EQ(block.timeAt(2152), 261'224);
    block.posStart = 0;
    block.posEnd = 2;
    block.timeStart = -3;
    block.timeEnd = 0;
    EXPECT_EQ(block.timeAt(1), -1); // -1.5 and its half away from zero: 2 ticks on
}

TEST(FxBlock, SourceIsInterpolatedInFrames) {
    FxBlock block;
    block.posStart = 100;
    block.posEnd = 200;
    block.srcStart = std::int64_t{50} << 16;
    block.srcEnd = std::int64_t{100} << 16;
    EXPECT_EQ(block.srcAt(100), 50.0);
    EXPECT_EQ(block.srcAt(101), 50.5);
    EXPECT_EQ(block.srcAt(200), 100.0);
}

TEST(FxBlock, NoFramesDivideByNothing) {
    FxBlock block;
    block.posStart = block.posEnd = 7;
    block.timeStart = 5;
    block.timeEnd = 500;
    block.srcStart = 3 << 16;
    block.srcEnd = 9 << 16;
    EXPECT_EQ(block.timeAt(7), 5);
    EXPECT_EQ(block.srcAt(7), 3.0);
}

TEST(FxBlock, SameSpansLooksAtTimeAndSourceAlone) {
    FxBlock a;
    FxBlock b;
    b.posStart = b.posEnd = 9;
    b.format.rate = 8000;
    EXPECT_TRUE(a.sameSpans(b));
    for (std::int64_t FxBlock::*field :
         {&FxBlock::timeStart, &FxBlock::timeEnd, &FxBlock::srcStart, &FxBlock::srcEnd}) {
        FxBlock c = b;
        c.*field = 1;
        EXPECT_FALSE(a.sameSpans(c));
    }
}

} // namespace

} // namespace velorine::test
