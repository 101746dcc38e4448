#include "chain/RingSearch.h"

#include "foundation/Rounding.h"

#include <algorithm>

namespace velorine {

namespace {

bool isBehind(const FxBlock& block, std::int64_t frame) {
    return block.posEnd > frame || block.posStart >= frame;
}

} // namespace

int indexAt(const FxRing& ring, std::int64_t frame) {
    int low = 0;
    int high = ring.count();
    while (low < high) {
        const int middle = low + (high - low) / 2;
        if (isBehind(ring.at(middle), frame))
            high = middle;
        else
            low = middle + 1;
    }
    return low;
}

int indexAt(const FxRing& ring, std::int64_t frame, std::int32_t cursor) {
    const int count = ring.count();
    const int index = std::clamp(cursor - ring.removed(), 0, count);
    if (index == count) {
        // Everything was read; the ring's end is where the reader stands.
        if (count == 0 || ring.newest().posEnd <= frame) return count;
        return indexAt(ring, frame);
    }
    const FxBlock& block = ring.at(index);
    if (block.posStart == frame || (block.posStart < frame && frame < block.posEnd)) return index;
    // Behind a hole; the reader has passed what lies before it, markers too.
    if (block.posStart > frame && index > 0 && ring.at(index - 1).posEnd <= frame) return index;

    const int next = index + 1;
    if (next < count && block.posEnd <= frame && ring.at(next).posEnd > frame &&
        ring.at(next).posStart <= frame)
        return next;
    return indexAt(ring, frame);
}

FxTime timeAtFrame(const FxRing& ring, std::int64_t frame) {
    if (ring.empty()) return 0;
    if (frame >= ring.newest().posEnd) return ring.newest().timeEnd;
    if (frame <= ring.oldest().posStart) return ring.oldest().timeStart;

    const int index = indexAt(ring, frame);
    const FxBlock& block = ring.at(index);
    if (block.posStart <= frame) return block.timeAt(frame);

    const FxBlock& before = ring.at(index - 1); // a gap: time runs on evenly to the next block
    return before.timeEnd + scaledRounded(block.timeStart - before.timeEnd, frame - before.posEnd,
                                          block.posStart - before.posEnd);
}

FxPos sourceAt(const FxRing& ring, std::int64_t frame) {
    for (int i = ring.count() - 1; i >= 0; --i) {
        const FxBlock& block = ring.at(i);
        if (block.posStart <= frame && frame <= block.posEnd)
            return FxPos::fromDouble(block.srcAt(static_cast<double>(frame)));
        if (block.posEnd < frame) break; // older ones end even earlier
    }
    if (ring.empty()) return {};
    return FxPos::fromDouble(static_cast<double>(ring.oldest().srcStart) / 65536.0);
}

std::int64_t frameAtTime(const FxRing& ring, FxTime time) {
    if (ring.empty()) return 0;
    if (time > ring.newest().timeEnd) return ring.newest().posEnd;
    if (time < ring.oldest().timeStart) return ring.oldest().posStart;
    for (int i = ring.count() - 1; i >= 0; --i) {
        const FxBlock& block = ring.at(i);
        if (block.timeStart > time) continue;
        const FxTime duration = block.timeEnd - block.timeStart;
        if (time >= block.timeEnd || duration == 0) return block.posEnd;
        return block.posStart +
               scaledRounded(block.posEnd - block.posStart, time - block.timeStart, duration);
    }
    return ring.oldest().posStart;
}

std::int64_t firstUsableFrame(const FxRing& ring, std::int64_t from, std::int64_t to) {
    const auto usesWholeWidth = [](const SampleFormat& format) {
        return format.layout >= bitsPerSample(format.type);
    };
    std::int64_t reached = from;
    int index = indexAt(ring, from);
    if (index == ring.count()) return from;
    const SampleFormat format = ring.at(index).format;
    for (; index < ring.count() && reached < to; ++index) {
        const FxBlock& block = ring.at(index);
        const bool same = block.format.type == format.type &&
                          block.format.channels == format.channels &&
                          block.format.rate == format.rate;
        if (block.posStart > reached || !same || !usesWholeWidth(block.format)) break;
        reached = block.posEnd;
    }
    return std::min(reached, to);
}

} // namespace velorine
