#include "tests/player/AudioFiles.h"
#include "tests/pulse/Recorder.h"
#include "tests/pulse/SoundDaemon.h"

#include <gtest/gtest.h>

#include <sndfile.h>

#include <cmath>
#include <cstdlib>

namespace velorine::test {
namespace {

std::vector<std::int16_t> decoded16(const std::string& file) {
    std::vector<std::int16_t> samples;
    for (const double sample : decode(file).samples)
        samples.push_back(static_cast<std::int16_t>(std::lround(sample * 32768.0)));
    return samples;
}

/// The frames that aren't silent on both channels.
std::vector<std::int16_t> loudFrames(const std::vector<std::int16_t>& samples) {
    std::vector<std::int16_t> loud;
    for (std::size_t i = 0; i + 1 < samples.size(); i += 2)
        if (samples[i] != 0 || samples[i + 1] != 0)
            loud.insert(loud.end(), {samples[i], samples[i + 1]});
    return loud;
}

TEST(PulseProgram, ListsTheSinks) {
    SoundDaemon daemon;
    daemon.addSink({"First"});
    daemon.addSink({"Second"});
    daemon.makeDefault("Second");
    EXPECT_EQ(outputOf({VELORINE_PROGRAM, "devices"}),
              "Second\tdefault device\nFirst\tdevice\n"
              "None\tnull target: plays in real time, and silently\n");
}

TEST(PulseProgram, PlaysAFileOnTheSinkThatWasAskedFor) {
    SoundDaemon daemon;
    const SoundDaemon::Sink chosen{"Second", 44100, 2, "s16le"};
    daemon.addSink({"First"});
    daemon.addSink(chosen);
    daemon.makeDefault("First");
    const Recorder recorder{chosen};
    const Scratch scratch;
    const std::string file = scratch.path("noise.wav");
    writeNoise(file, {SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 44100, 44100, 1});
    outputOf({VELORINE_PROGRAM, "play", "--device", "Second", "--set", "Eq/enable=0", "--set",
              "General/Fade on stop=false", file});

    // What passes for silence before the first sound isn't played.
    std::vector<std::int16_t> written = decoded16(file);
    std::size_t first = 0;
    while (std::abs(written[first]) < 328) // -40 dB
        first += 2;
    written.erase(written.begin(), written.begin() + static_cast<std::ptrdiff_t>(first));
    EXPECT_TRUE(loudFrames(recorder.samples<std::int16_t>()) == loudFrames(written));
}

} // namespace
} // namespace velorine::test
