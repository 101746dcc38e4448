#pragma once

#include "output/pulse/HeardFrames.h"
#include "output/pulse/PulseServer.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace velorine {

class SystemClock;

/// A playback stream at the server. It begins corked and empty, with a queue of about 40 ms.
///
/// All operations under the mainloop's lock; it is told of on the mainloop's thread, lock held, and
/// may be ended from there.
class PulseStream {
public:
    /// Who feeds the stream.
    class Owner {
    public:
        virtual ~Owner() = default;
        virtual void streamReady() = 0;
        virtual void streamLost() = 0;      ///< for good: the sink or the server has gone
        virtual void streamStarted() = 0;   ///< the sink took its first samples
        virtual void streamWants() = 0;     ///< there is room in its queue
        virtual void streamSuspended() = 0; ///< or resumed, or moved to another sink
        virtual void streamReported(const HeardFrames::Report& report) = 0;
    };

    struct Shape {
        pa_sample_spec spec{};
        pa_channel_map map{};
        int frameBytes = 0;
    };

    /// @param sink  lasting name of the one that it stays on; empty: the default one, which it
    ///              follows
    PulseStream(PulseServer& pulseServer, const SystemClock& systemClock, Owner& streamOwner,
                const Shape& streamShape, const std::string& sink);
    ~PulseStream();
    PulseStream(const PulseStream&) = delete;
    PulseStream& operator=(const PulseStream&) = delete;

    bool isReady() const;
    bool isLost() const;
    bool isSuspended() const; ///< its sink doesn't play

    /// Plays, or stands and lets the sink rest.
    void setCorked(bool corked);

    int roomFrames() const; ///< that the queue wants now

    /// Queues whole frames, the first of them `back` frames before the end of the queue: what stood
    /// there is replaced as far as the server still has it.
    void write(std::span<const std::byte> frames, std::int64_t back);

    /// Asks for a report, unless one is on its way.
    void askForReport();

private:
    void stateChanged();
    void report();

    PulseServer& server;
    const PulseLibrary& pulse;
    const SystemClock& clock;
    Owner& owner;
    const Shape shape;
    pa_stream* stream = nullptr;   ///< null: it could not be made
    pa_operation* asked = nullptr; ///< the report that is on its way
};

} // namespace velorine
