#include "chain/HostInputStage.h"

#include "chain/BlockPassing.h"
#include "chain/FxClock.h"
#include "chain/RingAppend.h"
#include "chain/RingSearch.h"
#include "chain/WindowRead.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace velorine {

void HostInputStage::append(const SampleFormat& format, const void* data, std::int64_t bytes,
                            FxTime timeStart, FxTime timeEnd) {
    const int frameBytes = bytesPerFrame(format);
    const std::int64_t whole = frameBytes > 0 ? std::max<std::int64_t>(bytes, 0) / frameBytes : 0;
    const int frames = data ? static_cast<int>(whole) : 0;

    FxBlock block;
    if (frames > 0) {
        void* const samples = block.allocate(arenaStore, format, frames);
        std::memcpy(samples, data,
                    static_cast<std::size_t>(frames) * static_cast<std::size_t>(frameBytes));
    }
    block.format = format;
    block.timeStart = timeStart;
    block.timeEnd = timeEnd;
    {
        const RWLock::WriteScope guard{hostRingLock};
        const int count = hostRing.count();
        if (count >= 2 && block.empty() && hostRing.at(count - 1).empty() &&
            hostRing.at(count - 2).empty() && block.sameSpans(hostRing.at(count - 1)) &&
            block.sameSpans(hostRing.at(count - 2))) {
            FxBlock& newest = hostRing.newest();
            newest.posStart = newest.posEnd = hostRing.at(count - 2).posEnd;
        } else {
            appendTo(hostRing, std::move(block));
        }
        wantsData.store(false, std::memory_order_relaxed);
    }
    if (notifier) notifier->wake(); // outside the lock: the pump may take it at once
}

std::int64_t HostInputStage::inputStartFor(int, const FxPos& pos) {
    const RWLock::WriteScope guard{hostRingLock};
    while (hostRing.count() > 2 && hostRing.oldest().posEnd <= pos.whole)
        hostRing.pop();
    return pos.whole;
}

void HostInputStage::seek(int, const FxPos& pos) {
    nextInput = pos.whole;
    readHead = pos.whole;
}

void HostInputStage::setLimit(std::int64_t frame) {
    const RecursiveLock::Scope guard{limitLock};
    readLimit = frame;
}

bool HostInputStage::process(FxArena& sampleArena, FxBlock& out, FxRing& in, int maxFrames) {
    if (!processBody(sampleArena, out, in, maxFrames)) return false;
    if (muted.load(std::memory_order_relaxed)) out.format.channels = 0;
    return true;
}

bool HostInputStage::processBody(FxArena& sampleArena, FxBlock& out, FxRing&, int maxFrames) {
    for (;;) {
        bool delivered = false;
        std::int64_t limit = -1;
        FxTime time = 0;
        {
            const RWLock::ReadScope guard{hostRingLock};
            if (!hostRing.empty()) readHead = std::max(readHead, hostRing.oldest().posStart);
            {
                const RecursiveLock::Scope limitGuard{limitLock};
                limit = readLimit;
            }
            time = timeAtFrame(hostRing, readHead);
            if (maxFrames > 0) delivered = deliver(sampleArena, out, limit);
        }
        if (maxFrames <= 0) {
            markPosition(out, time, readHead);
            standing = true;
            return true;
        }
        const bool atLimit = limit >= 0 && readHead >= limit;
        if (fillSilence.load(std::memory_order_relaxed) || atLimit) {
            if (clock) clock->requestService();
            if (!delivered) {
                markPosition(out, time, readHead);
                standing = true;
                return true;
            }
        }
        if (delivered) return true;
        wantsData.store(true, std::memory_order_relaxed);
        if (!pull.load(std::memory_order_relaxed) || !fetch()) return false;
    }
}

bool HostInputStage::deliver(FxArena& sampleArena, FxBlock& out, std::int64_t limit) {
    if (limit >= 0 && readHead >= limit) return false;
    if (!passBlock(sampleArena, out, hostRing, converter, readHead, cursor)) return false;
    if (limit >= 0 && readHead > limit) {
        // Beyond the limit the stage delivers nothing; what lies before it goes out.
        const auto beyond = static_cast<std::int32_t>(readHead - limit);
        const std::int64_t from = readHead - out.frames();
        out.timeEnd = timeAtFrame(hostRing, limit);
        out.last -= beyond;
        out.srcStart = from << 16;
        out.srcEnd = limit << 16;
        readHead = limit;
        --cursor;
    }
    nextInput = readHead;
    return true;
}

/// There is no private source: what the host didn't write isn't there.
bool HostInputStage::fetch() {
    return false;
}

FxBlock HostInputStage::dropAll(bool keepLast) {
    const RWLock::WriteScope guard{hostRingLock};
    const FxBlock marker = hostRing.endMarker();
    if (hostRing.empty()) return marker;
    if (keepLast) {
        while (hostRing.count() > 1)
            hostRing.pop();
    } else {
        hostRing.clearTo(marker);
    }
    readHead = nextInput = marker.posEnd;
    cursor = hostRing.removed() + hostRing.count();
    return marker;
}

} // namespace velorine
