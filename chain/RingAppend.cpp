#include "chain/RingAppend.h"

#include <algorithm>
#include <utility>

namespace velorine {

namespace {

void clampSpans(const FxRing& ring, FxBlock& block) {
    const bool first = ring.empty();
    block.timeStart = first ? block.timeStart : std::max(block.timeStart, ring.newest().timeEnd);
    block.timeEnd = std::max(block.timeEnd, block.timeStart);
    block.srcStart = first ? block.srcStart : std::max(block.srcStart, ring.newest().srcEnd);
    block.srcEnd = std::max(block.srcEnd, block.srcStart);
    block.posStart = ring.end();
    block.posEnd = block.posStart + block.frames();
}

} // namespace

void appendTo(FxRing& ring, FxBlock block) {
    clampSpans(ring, block);
    ring.push(std::move(block));
}

void commitTo(FxRing& ring, FxBlock block) {
    clampSpans(ring, block);
    for (int i = ring.count() - 1; i >= 0 && ring.at(i).empty(); --i)
        ring.at(i).format = block.format;

    const int count = ring.count();
    if (block.empty() && count >= 2 && ring.at(count - 1).empty() && ring.at(count - 2).empty() &&
        block.sameSpans(ring.at(count - 1)) && block.sameSpans(ring.at(count - 2))) {
        ring.newest().posStart = ring.newest().posEnd = ring.at(count - 2).posEnd;
        return;
    }
    ring.push(std::move(block));
}

} // namespace velorine
