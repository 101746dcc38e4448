#include "tests/journeys/Programme.h"

#include "tests/support/Signals.h"

#include <algorithm>

namespace velorine::test {

namespace {
constexpr std::int32_t segmentRoom = 4'000'000; // values of one segment
}

void Programme::beginSegment() {
    const auto index = static_cast<std::int32_t>(segments.size());
    segments.push_back({rampStart + index % 200 * segmentRoom, 0});
}

void Programme::writeFrames(int frames) {
    Segment& segment = segments.back();
    const auto samples = ramp(frames, format.channels, segment.base + segment.frames);
    segment.frames += frames;
    host.write(samples);
}

void Programme::writePermitted(int ms) {
    const int perPiece = 9216 / (4 * format.channels);
    for (int left = static_cast<int>(std::int64_t{ms} * format.rate / 1000); left > 0;) {
        const int frames = std::min(left, perPiece);
        Segment& segment = segments.back();
        const auto samples = ramp(frames, format.channels, segment.base + segment.frames);
        if (host.writeOnce(reinterpret_cast<const char*>(samples.data()), samples.size() * 4) == 0)
            return;
        segment.frames += frames;
        left -= frames;
    }
}

void Programme::open(const TrackFormat& wanted) {
    format = wanted;
    host.open(format.rate, format.channels, 32);
    beginSegment();
}

void Programme::finish() {
    close(true);
    host.advance(3000);
    host.out.Quit();
}

std::vector<Stretch> Programme::stretches() {
    std::vector<Stretch> list = test::stretches(heard(), segments);
    if (!list.empty() && list.back().kind == Stretch::Kind::silence) list.pop_back();
    return list;
}

} // namespace velorine::test
