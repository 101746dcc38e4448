#include "output/pulse/HeardFrames.h"

#include <algorithm>

namespace velorine {

namespace {
/// What a change takes to reach the server, with a busy machine in mind.
constexpr FxTime transport = 5 * ticksPerMs;
} // namespace

void HeardFrames::begin(FxTime now) {
    last = {};
    reported = false;
    heard = 0;
    progress = {now, 0};
}

void HeardFrames::take(const Report& report) {
    const bool moved = !reported || report.takenFrames > last.takenFrames;
    last = report;
    reported = true;
    if (moved) progress = {report.at, at(report.at, report.takenFrames)};
}

std::int64_t HeardFrames::framesIn(FxTime time) const {
    return time * rate / ticksPerSecond;
}

std::int64_t HeardFrames::reckoned(FxTime now, std::int64_t sent) const {
    if (!reported) return 0;
    // A sink that finds nothing plays silence behind what it took, and the stream stands.
    const std::int64_t limit = last.flows ? sent : std::min(last.takenFrames, sent);
    return std::min(last.takenFrames + framesIn(now - last.at - last.sinkDelay), limit);
}

std::int64_t HeardFrames::at(FxTime now, std::int64_t sent) {
    heard = std::max(heard, reckoned(now, sent));
    return heard;
}

std::int64_t HeardFrames::firmEnd(FxTime now, std::int64_t sent) {
    const std::int64_t ahead = framesIn(last.sinkBuffer + transport);
    const std::int64_t taken = std::max(last.takenFrames, at(now, sent) + ahead);
    return std::min(taken, sent);
}

} // namespace velorine
