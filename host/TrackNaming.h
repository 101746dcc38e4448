#pragma once

#include "foundation/Event.h"
#include "foundation/Lock.h"
#include "foundation/Thread.h"

#include <cstdint>
#include <string>

namespace velorine {

class HostWindow;
class WavRecorder;

/// Names recordings by track: asks the host which file plays, and lets the recorder begin a new
/// file when it is another one.
///
/// The decoding thread asks at each write; a small thread does the same when it is woken, for a
/// host that has changed tracks without a write. Any thread.
class TrackNaming final : public Thread {
public:
    TrackNaming(HostWindow& hostWindow, WavRecorder& wavRecorder)
        : window(hostWindow), recorder(wavRecorder) {}
    ~TrackNaming() override { join(); }

    /// Whether each track gets a file of its own.
    bool switchedOn() const noexcept;

    /// Asks the host, and names the file if the track is a new one.
    void check();

    /// Lets the thread ask.
    void wake() { wakeEvent.set(); }

    std::uint32_t run() override;

private:
    HostWindow& window;
    WavRecorder& recorder;
    Event wakeEvent{Event::Reset::automatic};
    Lock lock;
    std::string lastTrack; ///< guarded by lock
};

} // namespace velorine
