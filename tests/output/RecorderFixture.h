#pragma once

#include "output/WavRecorder.h"
#include "tests/output/MemoryRecorderFiles.h"
#include "tests/output/WavParse.h"
#include "tests/support/TestClock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>

namespace velorine::test {

/// A recorder over files in memory, on the tests' clock, with recording wanted and "a.wav" named.
/// Its closing thread isn't started.
class RecorderFixture : public testing::Test {
protected:
    RecorderFixture() {
        recorder.active = 1;
        recorder.setPath("a.wav", false);
        streamIs({sampleType::int16, 2, 44100});
    }

    void streamIs(const SampleFormat& format) {
        recorder.streamFormat = format.type;
        recorder.streamChannels = format.channels;
        recorder.streamRate = format.rate;
    }
    void write(const Bytes& bytes) { recorder.write(bytes.data(), bytes.size()); }

    /// What is wrong with the header of a file in the stream's format; empty when nothing is.
    std::string fault(const std::string& path) {
        if (!files.has(path)) return "no file";
        return headerFault(files[path], recorder.streamFormat,
                           static_cast<std::uint32_t>(recorder.streamChannels),
                           static_cast<std::uint32_t>(recorder.streamRate));
    }

    TestClock clock;
    MemoryRecorderFiles files;
    std::atomic<bool> engineIdle{false};
    WavRecorder recorder{files, [this] { return engineIdle.load(); }};
};

} // namespace velorine::test
