#include "chain/BlockPassing.h"

#include "chain/RingSearch.h"
#include "chain/WindowRead.h"

#include <algorithm>
#include <cstring>

namespace velorine {

namespace {

void passSilence(FxArena& arena, FxBlock& out, const FxRing& in, SampleConverterHandle& converter,
                 std::int64_t from, std::int64_t to) {
    const int frames = static_cast<int>(std::min<std::int64_t>(to - from, maxGapFrames));
    const FrameWindow window = readWindow(in, converter, {}, from, frames);
    void* const samples = out.allocate(arena, window.format, frames);
    std::memcpy(samples, window.samples.get(),
                static_cast<std::size_t>(frames) *
                    static_cast<std::size_t>(bytesPerFrame(window.format)));
    out.timeStart = window.timeStart;
    out.timeEnd = window.timeEnd;
    out.srcStart = from << 16;
    out.srcEnd = (from + frames) << 16;
}

} // namespace

FxBlock blockFrom(const FxBlock& block, std::int64_t frame) {
    FxBlock part = block;
    if (frame > block.posStart) {
        part.first += static_cast<std::int32_t>(frame - block.posStart);
        part.timeStart = block.timeAt(frame);
    }
    part.srcStart = frame << 16;
    part.srcEnd = block.posEnd << 16;
    return part;
}

bool passBlock(FxArena& arena, FxBlock& out, const FxRing& in, SampleConverterHandle& converter,
               std::int64_t& nextFrame, std::int32_t& cursor) {
    const int index = indexAt(in, nextFrame, cursor);
    if (index == in.count()) return false;

    const FxBlock& block = in.at(index);
    if (block.posStart > nextFrame) {
        passSilence(arena, out, in, converter, nextFrame, block.posStart);
        nextFrame += out.frames();
        cursor = in.removed() + index;
        return true;
    }
    out = blockFrom(block, nextFrame);
    nextFrame = block.posEnd;
    cursor = in.removed() + index + 1;
    return true;
}

} // namespace velorine
