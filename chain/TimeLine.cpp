#include "chain/TimeLine.h"

#include "foundation/Rounding.h"

#include <algorithm>

namespace velorine {

std::int64_t timeToFrame(const FxRing& ring, FxTime t) {
    if (ring.empty()) return 0;
    if (t < ring.oldest().timeStart) return ring.oldest().posStart;

    for (int i = ring.count() - 1; i >= 0; --i) {
        const FxBlock& block = ring.at(i);
        if (block.timeStart > t || block.timeStart == block.timeEnd) continue;
        if (t > block.timeEnd) {
            if (t < ring.newest().timeEnd) return block.posEnd; // a stretch that nothing covers
            break;
        }
        return block.posStart + scaledRounded(block.posEnd - block.posStart, t - block.timeStart,
                                              block.timeEnd - block.timeStart);
    }
    const FxBlock& newest = ring.newest();
    return newest.posEnd + scaledRounded(t - newest.timeEnd, newest.format.rate, ticksPerSecond);
}

FxTime frameToTime(const FxRing& ring, std::int64_t p) {
    if (ring.empty()) return 0;
    if (p < ring.oldest().posStart) return ring.oldest().timeStart;
    for (int i = ring.count() - 1; i >= 0; --i) {
        const FxBlock& block = ring.at(i);
        if (block.posStart > p || block.posStart == block.posEnd) continue;
        if (p > block.posEnd) break;
        return block.timeAt(p);
    }
    return ring.newest().timeEnd;
}

const FxBlock* blockAtTime(const FxRing& ring, FxTime t) {
    if (ring.empty()) return nullptr;
    for (int i = ring.count() - 1; i >= 0; --i)
        if (ring.at(i).timeStart <= t) return &ring.at(i);
    return &ring.oldest();
}

FxTime frameToTime(const FxRing& ring, std::int64_t p, std::int32_t& searchCursor) {
    const int count = ring.count();
    int index = std::clamp(searchCursor - ring.removed(), 0, count - 1);
    if (p < ring.at(index).posStart) {
        while (index >= 0 && ring.at(index).posStart > p)
            --index;
    } else if (p >= ring.at(index).posEnd) {
        while (index < count && ring.at(index).posEnd <= p)
            ++index;
    }
    searchCursor = ring.removed() + index;
    if (index < 0) return ring.oldest().timeStart;
    if (index == count) return ring.newest().timeEnd;
    return ring.at(index).timeAt(p);
}

} // namespace velorine
