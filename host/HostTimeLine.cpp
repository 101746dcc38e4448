#include "host/HostTimeLine.h"

#include "host/FxEngine.h"
#include "host/HostStream.h"

#include <algorithm>

namespace velorine {

std::int32_t HostTimeLine::outputTime() {
    const FxTime heard = engine.output.played();
    const HostTimes times = stream.times();
    FxTime t = std::max(heard, times.trackStart + times.seekOffset);
    t = std::max(t, times.segmentBase);
    // Until the first data after a seek, the zero that the track start implies is the one to be.
    return HostTimes::toMs(t - (times.seekPending ? times.trackStart : times.timeZero));
}

std::int32_t HostTimeLine::writtenTime() {
    const HostTimes times = stream.times();
    return HostTimes::toMs(times.writtenEnd - times.timeZero);
}

void HostTimeLine::applyPendingSeek() {
    if (!stream.times().seekPending) return;
    const FxTime end = engine.writtenEnd();
    stream.update([end](HostTimes& times) {
        times.timeZero = end - times.pendingSeek;
        times.segmentFrames = 0;
        times.seekPending = false;
        times.writtenEnd = times.segmentBase = end;
    });
}

void HostTimeLine::resync(FxTime offset) {
    const FxTime end = engine.output.played();
    stream.update([end, offset](HostTimes& times) {
        times.segmentFrames = 0;
        times.timeZero = end - offset;
        times.seekPending = false;
        times.writtenEnd = times.segmentBase = end;
    });
}

} // namespace velorine
