#pragma once

#include "tests/support/Heard.h"
#include "tests/support/TestHost.h"

#include <cstdint>
#include <vector>

namespace velorine::test {

/// What a track's samples are, besides 32 bits wide.
struct TrackFormat {
    int rate = 48000;
    int channels = 2;
};

/// A host whose every frame is known by its value: a segment of its own for each track and each run
/// of data behind a seek.
class Programme {
public:
    explicit Programme(const TestHost::Setup& setup = {}) : host(setup) {}

    void open() { open(TrackFormat{}); }
    void open(const TrackFormat& wanted);

    /// Writes `ms` more of the current segment, as the host is permitted to.
    void writeMs(int ms) { writeFrames(static_cast<int>(std::int64_t{ms} * format.rate / 1000)); }
    void writeFrames(int frames);

    /// Writes what is permitted at this moment of `ms`.
    void writePermitted(int ms);

    void seek(int ms) {
        host.out.Flush(ms);
        beginSegment();
    }
    void close(bool goesOn) { host.close(goesOn); }

    /// The natural end: the track closes, all of it is heard, and the host quits.
    void finish();

    std::vector<HeardFrame> heard() { return heardFrames(host.sound); }

    /// What was heard, without the silence behind the last of it.
    std::vector<Stretch> stretches();

    std::int64_t now() { return host.clock.ticks(); }

    TestHost host;
    std::vector<Segment> segments;

private:
    void beginSegment();

    TrackFormat format;
};

} // namespace velorine::test
