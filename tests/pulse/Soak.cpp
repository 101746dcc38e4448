// Plays for long and looks at every frame that comes out; see scripts/soak.sh.
//
//   velorine_soak clock HOURS    on the test clock, to a device that writes down what it plays
//   velorine_soak real SECONDS   to a sound server, with one core kept busy

#include "host/Module.h"
#include "tests/pulse/Listening.h"
#include "tests/support/Signals.h"
#include "tests/support/TestHost.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <unistd.h>

namespace velorine::test {
namespace {

constexpr int rate = 48000;
constexpr int channels = 2;
constexpr int trackSeconds = 60;

long residentKb() {
    std::ifstream statm{"/proc/self/statm"};
    long total = 0;
    long resident = 0;
    statm >> total >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

/// Frames of the tracks, as they have to come out: each track counts up from the same value.
class Expected {
public:
    /// Takes what came out next. Silence is counted, anything else that isn't the next frame too.
    void take(std::int32_t value) {
        if (value == 0) {
            ++silentFrames;
            if (inSound) ++breaks;
            inSound = false;
            return;
        }
        inSound = true;
        ++heardFrames;
        if (value != rampStart + next) ++wrongFrames;
        next = value - rampStart + 1;
        if (next >= trackSeconds * rate) next = 0;
    }

    std::int64_t heardFrames = 0;
    std::int64_t wrongFrames = 0;
    std::int64_t silentFrames = 0;
    std::int64_t breaks = 0; ///< silences, the one at the end too

private:
    std::int32_t next = 0;
    bool inSound = false;
};

int verdict(bool good) {
    std::puts(good ? "soak: passed" : "soak: FAILED");
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}

int onTheClock(int hours) {
    TestHost host{TestHost::Setup{}};
    const auto track = ramp(trackSeconds * rate, channels);
    Expected expected;
    const auto takeHeard = [&] {
        for (const TestSound::Passage& passage : host.sound.passages())
            for (int i = 0; i < passage.count(); ++i) {
                std::int32_t value = 0;
                std::memcpy(&value, passage.frames.data() + std::ptrdiff_t{i} * channels * 4, 4);
                expected.take(value);
            }
        host.sound.forget();
    };
    const std::size_t part = std::size_t{10} * rate * channels * sizeof(std::int32_t);
    long settledKb = 0;
    int mostBytes = 0;
    for (int played = 0; played < hours * 3600; played += trackSeconds) {
        host.open(rate, channels, 32);
        const auto* const bytes = reinterpret_cast<const char*>(track.data());
        for (std::size_t at = 0; at < track.size() * 4; at += part) {
            host.writeBytes(bytes + at, part);
            takeHeard();
        }
        host.close(true);
        mostBytes = std::max(mostBytes, static_cast<int>(moduleStatus().totalBytes));
        if (played == 600) settledKb = residentKb();
    }
    host.advance(3000); // the end of the last track is heard
    const long grownKb = residentKb() - settledKb;
    takeHeard();
    const std::int64_t written = std::int64_t{hours} * 3600 * rate;
    std::printf("%d h on the test clock: %lld of %lld frames heard, %lld wrong; under-runs %d, "
                "memory grew by %ld KB after 10 min, at most %d KB of samples\n",
                hours, static_cast<long long>(expected.heardFrames),
                static_cast<long long>(written), static_cast<long long>(expected.wrongFrames),
                static_cast<int>(std::max<std::int64_t>(expected.breaks - 1, 0)), grownKb,
                mostBytes / 1024);
    return verdict(expected.heardFrames == written && expected.wrongFrames == 0 &&
                   expected.breaks <= 1 && grownKb < 2048);
}

int inRealTime(int seconds) {
    Listening room;
    const Child burner{{"sh", "-c", "while :; do :; done"}, Child::Output::dropped};
    const auto track = ramp(trackSeconds * rate, channels);
    int underRuns = 0;
    bool played = false;
    const auto look = [&] {
        const bool plays = moduleStatus().devicePlays;
        if (played && !plays) ++underRuns;
        played = plays;
    };
    const std::size_t part = std::size_t{rate} / 50 * channels; // samples of 20 ms
    for (int done = 0; done < seconds; done += trackSeconds) {
        room.host.open(rate, channels, 32);
        for (std::size_t at = 0; at < track.size(); at += part) {
            room.host.write(&track[at], std::min(part, track.size() - at) * 4);
            look();
        }
        room.host.close(true);
    }
    const bool heardOut = room.host.reachesEnd();
    const int underflows = moduleStatus().underflows;
    room.host.quit();

    Expected expected;
    const auto samples = room.recorder.samples<std::int32_t>();
    std::size_t first = 0;
    while (first < samples.size() && samples[first] == 0)
        first += channels;
    for (std::size_t i = first; i < samples.size(); i += channels)
        expected.take(samples[i]);
    const std::int64_t written =
        std::int64_t{(seconds + trackSeconds - 1) / trackSeconds} * trackSeconds * rate;
    std::printf("%d s in real time beside a busy core: %lld of %lld frames recorded, %lld lost or "
                "stale; our under-runs %d, the server's underflows %d, breaks in the sound %lld\n",
                seconds, static_cast<long long>(expected.heardFrames),
                static_cast<long long>(written), static_cast<long long>(expected.wrongFrames),
                underRuns, underflows,
                static_cast<long long>(std::max<std::int64_t>(expected.breaks - 1, 0)));
    return verdict(heardOut && expected.heardFrames == written && expected.wrongFrames == 0);
}

} // namespace
} // namespace velorine::test

int main(int argc, char** argv) {
    const std::string mode = argc == 3 ? argv[1] : "";
    const int length = argc == 3 ? std::atoi(argv[2]) : 0;
    if (mode == "clock" && length > 0) return velorine::test::onTheClock(length);
    if (mode == "real" && length > 0) return velorine::test::inRealTime(length);
    std::fputs("usage: velorine_soak clock HOURS | real SECONDS\n", stderr);
    return 2;
}
