#include "host/TrackNaming.h"

#include "host/HostWindow.h"
#include "output/TrackNames.h"
#include "output/WavRecorder.h"

namespace velorine {

bool TrackNaming::switchedOn() const noexcept {
    return recorder.active.load(std::memory_order_relaxed) != 0 &&
           recorder.recordmode.load(std::memory_order_relaxed) >= 2;
}

void TrackNaming::check() {
    const std::intptr_t position = window.send(0, hostMessage::listPosition);
    const auto* const name = reinterpret_cast<const char*>(
        window.send(static_cast<std::uintptr_t>(position), hostMessage::playlistFile));
    if (!name) return;
    {
        const Lock::Scope naming{lock};
        if (lastTrack == name) return;
        lastTrack = name;
    }
    recorder.setPath(trackRecordingPath(name), true);
}

std::uint32_t TrackNaming::run() {
    const Kernel::Handle handles[] = {stop.native(), wakeEvent.native()};
    while (kernel().waitAny(handles, Kernel::forever) == 1)
        if (switchedOn()) check();
    return 0;
}

} // namespace velorine
