#include "chain/driver/PlaybackThread.h"

#include "chain/driver/FxChainHost.h"
#include "foundation/PriorityScope.h"

namespace velorine {

namespace {
constexpr int quietMs = 1000;   ///< after the last sound, until the chain is cleared
constexpr int releaseMs = 5000; ///< after that, until the device is given back
} // namespace

PlaybackThread::Woken PlaybackThread::waitFor(FlaggedEvent& device, int timeoutMs) {
    switch (waitForFirst(timeoutMs, stop, wakeEvent, device)) {
    case 0: return Woken::stop;
    case 1: return Woken::work;
    case 2: return Woken::deviceChanged;
    default: return Woken::timedOut;
    }
}

/// Waits for as long as it takes, and keeps the machine awake only while audio is going out.
PlaybackThread::Woken PlaybackThread::waitAwake(FlaggedEvent& device) {
    Woken woken = waitFor(device, quietMs);
    if (woken != Woken::timedOut) return woken;
    awake.require(deviceActive);
    woken = waitFor(device, Kernel::forever);
    awake.require(!deviceActive);
    return woken;
}

std::uint32_t PlaybackThread::run() {
    kernel().setCurrentPriority(priorityHighest);
    FlaggedEvent& playing = engine.output.device.running;
    FlaggedEvent& drained = engine.output.device.halted;
    while (!stop.isSet()) {
        if (wakeEvent.isSet()) {
            wakeEvent.reset();
            engine.runPlayback(stop);
            continue;
        }
        const Woken woken = waitAwake(deviceActive ? drained : playing);
        if (woken == Woken::stop) break;
        if (woken != Woken::deviceChanged) continue;
        deviceActive = !deviceActive;
        if (deviceActive) continue;
        if (engine.output.outputMode != 0)
            deviceActive = true; // a file has no device that could run dry
        else
            deviceActive = restOnIdle();
    }
    return 0;
}

/// The output has run dry: after a second the chain is cleared, after five more the device is given
/// back. @return whether the device plays again
bool PlaybackThread::restOnIdle() {
    FlaggedEvent& playing = engine.output.device.running;
    for (const int waitMs : {quietMs, releaseMs}) {
        const Woken woken = waitFor(playing, waitMs);
        if (woken == Woken::deviceChanged) return true;
        if (woken != Woken::timedOut) return false;
        engine.rest(waitMs == releaseMs);
        wakeEvent.reset();
        engine.runPlayback(stop);
    }
    return false;
}

} // namespace velorine
