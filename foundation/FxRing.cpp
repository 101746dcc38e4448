#include "foundation/FxRing.h"

#include "foundation/Memory.h"
#include "foundation/Rounding.h"

#include <new>
#include <utility>

namespace velorine {

FxRing::~FxRing() {
    for (int i = 0; i < room; ++i)
        base[i].~FxBlock();
    memFree(base);
}

void FxRing::grow() {
    const int newRoom = room == 0 ? 48 : 2 * room;
    auto* const grown =
        static_cast<FxBlock*>(memAlloc(static_cast<std::size_t>(newRoom) * sizeof(FxBlock)));
    for (int i = 0; i < used; ++i)
        new (grown + i) FxBlock(std::move(at(i)));
    for (int i = used; i < newRoom; ++i)
        new (grown + i) FxBlock;
    for (int i = 0; i < room; ++i)
        base[i].~FxBlock();
    memFree(base);
    base = grown;
    room = newRoom;
    head = 0;
}

void FxRing::push(FxBlock block) {
    if (used == room) grow();
    ++used;
    newest() = std::move(block);
}

void FxRing::pop() noexcept {
    at(0).buffer = {};
    if (++head == room) head = 0;
    --used;
    ++popped;
}

void FxRing::popNewest() noexcept {
    newest().buffer = {};
    --used;
}

FxBlock FxRing::endMarker() const {
    FxBlock marker;
    if (used == 0) return marker;
    const FxBlock& end = newest();
    marker.timeStart = marker.timeEnd = end.timeEnd;
    marker.srcStart = marker.srcEnd = end.srcEnd;
    marker.posStart = marker.posEnd = end.posEnd;
    marker.format = end.format;
    return marker;
}

void FxRing::truncate(std::int64_t pos) {
    while (used > 0 && newest().posStart >= pos) {
        if (newest().posEnd == pos && newest().empty()) break; // a marker at the cut stays
        if (used == 1) {
            FxBlock marker = endMarker();
            marker.posStart = marker.posEnd = newest().posStart;
            marker.timeStart = marker.timeEnd = newest().timeStart;
            marker.srcStart = marker.srcEnd = newest().srcStart;
            newest() = std::move(marker);
            return;
        }
        popNewest();
    }
    if (used == 0 || newest().posEnd <= pos) return;

    FxBlock& cut = newest();
    const std::int64_t kept = pos - cut.posStart;
    const std::int64_t span = cut.posEnd - cut.posStart;
    cut.timeEnd = cut.timeAt(pos);
    cut.srcEnd = cut.srcStart + scaledRounded(cut.srcEnd - cut.srcStart, kept, span);
    cut.last = cut.first + static_cast<std::int32_t>(kept);
    cut.posEnd = pos;
}

void FxRing::clearTo(const FxBlock& marker) {
    assert(marker.empty());
    while (used > 0)
        popNewest();
    push(marker);
}

} // namespace velorine
