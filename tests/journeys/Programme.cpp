#include "tests/journeys/Programme.h"

#include "tests/support/Signals.h"

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
    const auto samples = ramp(frames, 2, segment.base + segment.frames);
    segment.frames += frames;
    host.write(samples);
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
