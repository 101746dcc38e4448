#pragma once

#include "foundation/KeepAwake.h"
#include "host/FxEngine.h"
#include "host/HalfTrackComparison.h"
#include "host/HostFeed.h"
#include "host/HostStream.h"
#include "host/HostTimeLine.h"
#include "host/HostWindow.h"
#include "host/TrackNaming.h"
#include "host/Transport.h"
#include "tests/support/Blocks.h"
#include "tests/support/MemoryFiles.h"
#include "tests/support/TestClock.h"
#include "tests/support/TestSound.h"

#include <cstdint>
#include <vector>

namespace velorine::test {

class IgnoredAwake final : public KeepAwake {
public:
    void require(bool) override {}
};

/// The host's side over an engine of its own, whose rings a test may look into. The engine stands
/// until a test starts it: what is written stays in the host ring.
struct FeedRig {
    explicit FeedRig(TestClock::Mode mode = TestClock::Mode::serial, std::uint32_t seed = 0)
        : clock(mode, seed) {
        engine.kestrix.parameters.enable = false; // what comes out is what went in
    }

    /// Opens a track and lets its first sound through, so that no silence is dropped.
    void open(int rate, int channels, int bits) {
        transport.open(rate, channels, bits);
        stream.skipSilence.store(false);
    }

    template <typename Sample>
    void write(const std::vector<Sample>& samples) {
        feed.write(reinterpret_cast<const char*>(samples.data()),
                   static_cast<int>(samples.size() * sizeof(Sample)));
    }

    /// Frames of 16-bit stereo that are loud.
    void writeFrames(int frames) {
        write(std::vector<std::int16_t>(2 * static_cast<std::size_t>(frames), 9000));
    }

    const FxRing& hostRing() const { return engine.input.hostRing; }

    TestClock clock;
    SystemClock time;
    TestSound sound{clock};
    MemoryFiles files;
    IgnoredAwake awake;
    FxEngine engine{{time, &sound, files, awake}};
    HostStream stream;
    HostWindow window;
    HostTimeLine timeLine{stream, engine};
    Transport transport{stream, engine, timeLine, window};
    TrackNaming naming{window, engine.output.recorder};
    HalfTrackComparison comparison{stream, engine, transport};
    HostFeed feed{stream, engine, timeLine, naming, comparison};
};

} // namespace velorine::test
