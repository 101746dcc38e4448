#pragma once

#include "tests/pulse/Child.h"
#include "tests/pulse/SoundDaemon.h"
#include "tests/support/Heard.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

namespace velorine::test {

/// Records all that comes out of a sink, and when.
class Recorder {
public:
    using Clock = std::chrono::steady_clock;

    explicit Recorder(const SoundDaemon::Sink& recordedSink); ///< and waits until it records
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// What was recorded so far, whole frames.
    std::vector<std::byte> bytes() const;

    /// The same as samples of all channels.
    template <typename Sample>
    std::vector<Sample> samples() const {
        const std::vector<std::byte> all = bytes();
        const auto* const first = reinterpret_cast<const Sample*>(all.data());
        return {first, first + all.size() / sizeof(Sample)};
    }

    /// Of a sink with 32-bit integer samples: its frames by their first channel. Ticks are those of
    /// `tickAt`.
    std::vector<HeardFrame> heard() const;

    /// When a frame of the recording left the sink, 100 ns; the clock is the steady one.
    std::int64_t tickAt(std::int64_t frame) const;
    static std::int64_t ticksNow();

    std::int64_t frames() const;

private:
    void read();

    const SoundDaemon::Sink sink;
    const std::size_t frameBytes;
    Child program;
    mutable std::mutex mutex;
    std::vector<std::byte> recorded;    ///< guarded by mutex
    std::int64_t firstTick = INT64_MAX; ///< of frame 0 as the quickest delivery tells; likewise
    std::thread reader;
};

} // namespace velorine::test
