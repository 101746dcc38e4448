#pragma once

#include "tests/support/Heard.h"
#include "tests/support/TestHost.h"

#include <vector>

namespace velorine::test {

/// A host whose every frame is known by its value: 32-bit stereo at 48 kHz, a segment of its own
/// for each track and each run of data behind a seek.
class Programme {
public:
    static constexpr int rate = 48000;

    explicit Programme(const TestHost::Setup& setup = {}) : host(setup) {}

    void open() {
        host.open(rate, 2, 32);
        beginSegment();
    }

    /// Writes `ms` more of the current segment, as the host is permitted to.
    void writeMs(int ms) { writeFrames(ms * (rate / 1000)); }
    void writeFrames(int frames);

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
};

} // namespace velorine::test
