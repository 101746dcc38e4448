#include "output/pulse/PulseStream.h"

#include "foundation/SystemClock.h"

#include <algorithm>

namespace velorine {

namespace {

constexpr int queueMs = 40;  ///< in the server and the sink together
constexpr int requestMs = 5; ///< the server asks for no less at a time

PulseStream& streamOf(void* self) {
    return *static_cast<PulseStream*>(self);
}

std::uint32_t bytesOf(const PulseStream::Shape& shape, int ms) {
    const auto frames = static_cast<std::uint32_t>(std::int64_t{shape.spec.rate} * ms / 1000);
    return std::max(frames, 1U) * static_cast<std::uint32_t>(shape.frameBytes);
}

} // namespace

PulseStream::PulseStream(PulseServer& pulseServer, const SystemClock& systemClock,
                         Owner& streamOwner, const Shape& streamShape, const std::string& sink)
    : server(pulseServer), pulse(pulseServer.pulse), clock(systemClock), owner(streamOwner),
      shape(streamShape) {
    pa_proplist* const properties = pulse.pa_proplist_new();
    pulse.pa_proplist_sets(properties, PA_PROP_MEDIA_ROLE, "music");
    pulse.pa_proplist_sets(properties, PA_PROP_MEDIA_NAME, "Music");
    stream = pulse.pa_stream_new_with_proplist(server.connection(), nullptr, &shape.spec,
                                               &shape.map, properties);
    pulse.pa_proplist_free(properties);
    if (!stream) return;

    pulse.pa_stream_set_state_callback(
        stream, [](pa_stream*, void* self) { streamOf(self).stateChanged(); }, this);
    pulse.pa_stream_set_write_callback(
        stream, [](pa_stream*, std::size_t, void* self) { streamOf(self).owner.streamWants(); },
        this);
    pulse.pa_stream_set_started_callback(
        stream, [](pa_stream*, void* self) { streamOf(self).owner.streamStarted(); }, this);
    const auto suspended = [](pa_stream*, void* self) { streamOf(self).owner.streamSuspended(); };
    pulse.pa_stream_set_suspended_callback(stream, suspended, this);
    pulse.pa_stream_set_moved_callback(stream, suspended, this);
    pulse.pa_stream_set_underflow_callback(
        stream,
        [](pa_stream*, void* self) {
            streamOf(self).server.underflows.fetch_add(1, std::memory_order_relaxed);
        },
        this);

    pa_buffer_attr queue{};
    queue.maxlength = static_cast<std::uint32_t>(-1);
    queue.tlength = bytesOf(shape, queueMs);
    // The first frame starts the stream, and after an under-run the next one: the stream waits for
    // late frames, it doesn't drop them.
    queue.prebuf = static_cast<std::uint32_t>(shape.frameBytes);
    queue.minreq = bytesOf(shape, requestMs);
    queue.fragsize = static_cast<std::uint32_t>(-1);
    auto flags = PA_STREAM_START_CORKED | PA_STREAM_ADJUST_LATENCY;
    // A device that was chosen is that device: nothing is to come out of another one.
    if (!sink.empty()) flags = flags | PA_STREAM_DONT_MOVE;
    pulse.pa_stream_connect_playback(stream, sink.empty() ? nullptr : sink.c_str(), &queue,
                                     static_cast<pa_stream_flags_t>(flags), nullptr, nullptr);
}

PulseStream::~PulseStream() {
    if (asked) {
        pulse.pa_operation_cancel(asked);
        pulse.pa_operation_unref(asked);
    }
    if (!stream) return;
    pulse.pa_stream_set_state_callback(stream, nullptr, nullptr);
    pulse.pa_stream_set_write_callback(stream, nullptr, nullptr);
    pulse.pa_stream_set_started_callback(stream, nullptr, nullptr);
    pulse.pa_stream_set_suspended_callback(stream, nullptr, nullptr);
    pulse.pa_stream_set_moved_callback(stream, nullptr, nullptr);
    pulse.pa_stream_set_underflow_callback(stream, nullptr, nullptr);
    pulse.pa_stream_disconnect(stream);
    pulse.pa_stream_unref(stream);
}

bool PulseStream::isReady() const {
    return stream && pulse.pa_stream_get_state(stream) == PA_STREAM_READY;
}

bool PulseStream::isLost() const {
    return !stream || !PA_STREAM_IS_GOOD(pulse.pa_stream_get_state(stream));
}

bool PulseStream::isSuspended() const {
    return isReady() && pulse.pa_stream_is_suspended(stream) == 1;
}

void PulseStream::stateChanged() {
    server.signal();
    if (isReady())
        owner.streamReady();
    else if (isLost())
        owner.streamLost();
}

void PulseStream::setCorked(bool corked) {
    if (!isReady()) return;
    pa_operation* const operation = pulse.pa_stream_cork(stream, corked ? 1 : 0, nullptr, nullptr);
    if (operation) pulse.pa_operation_unref(operation);
}

int PulseStream::roomFrames() const {
    const std::size_t bytes = isReady() ? pulse.pa_stream_writable_size(stream) : 0;
    if (bytes == static_cast<std::size_t>(-1)) return 0;
    return static_cast<int>(bytes / static_cast<std::size_t>(shape.frameBytes));
}

void PulseStream::write(std::span<const std::byte> frames, std::int64_t back) {
    if (!isReady() || frames.empty()) return;
    pulse.pa_stream_write(stream, frames.data(), frames.size(), nullptr, -back * shape.frameBytes,
                          PA_SEEK_RELATIVE);
}

// -- Reports -----------------------------------------------------------------------------------

void PulseStream::askForReport() {
    if (asked || !isReady()) return;
    asked = pulse.pa_stream_update_timing_info(
        stream,
        [](pa_stream*, int success, void* self) {
            PulseStream& asking = streamOf(self);
            asking.pulse.pa_operation_unref(asking.asked);
            asking.asked = nullptr;
            if (success != 0) asking.report();
        },
        this);
}

void PulseStream::report() {
    const pa_timing_info* const timing = pulse.pa_stream_get_timing_info(stream);
    if (!timing || timing->read_index_corrupt != 0) return;
    timeval now{};
    pulse.pa_gettimeofday(&now);
    const auto age = static_cast<FxTime>(pulse.pa_timeval_diff(&now, &timing->timestamp)) * 10;

    HeardFrames::Report report;
    // The two clocks may be set apart in between; the news is never older than its question.
    report.at = clock.now() - std::clamp<FxTime>(age, 0, ticksPerSecond / 10);
    report.takenFrames = timing->read_index / shape.frameBytes;
    report.sinkDelay = static_cast<FxTime>(timing->sink_usec) * 10;
    report.sinkBuffer = static_cast<FxTime>(timing->configured_sink_usec) * 10;
    report.flows = timing->playing != 0;
    owner.streamReported(report);
}

} // namespace velorine
