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
    case 0:
        return Woken::stop;
    case 1:
        return Woken::work;
    case 2:
        return Woken::deviceChanged;
    default:
        return Woken::timedOut;
    }
}

std::uint32_t PlaybackThread::run() {
    kernel().setCurrentPriority(priorityHighest);
    while (!stop.isSet()) {
        if (wakeEvent.isSet()) {
            followWake();
            if (rest == Rest::cleared) rest = Rest::none;
        } else if (engine.output.outputMode != 0) {
            waitForFirst(Kernel::forever, stop, wakeEvent); // a file has no device that runs dry
        } else if (deviceActive) {
            waitWhilePlaying();
        } else {
            waitWhileHalted();
        }
    }
    return 0;
}

/// What the last step found is outdated before the wake is seen as followed: whoever waits for the
/// chain to run empty must not take the one for the answer to the other.
void PlaybackThread::followWake() {
    engine.chainStarved.store(false, std::memory_order_relaxed);
    wakeEvent.reset();
    engine.runPlayback(stop);
}

/// Waits for work or for the device to halt, and keeps the machine awake meanwhile.
void PlaybackThread::waitWhilePlaying() {
    FlaggedEvent& drained = engine.output.device.halted;
    Woken woken = waitFor(drained, quietMs);
    if (woken == Woken::timedOut) {
        awake.require(true);
        woken = waitFor(drained, Kernel::forever);
        awake.require(false);
    }
    if (woken != Woken::deviceChanged) return;
    deviceActive = false;
    rest = Rest::none;
}

/// The output has run dry: after a second the chain is cleared, after five more the device is given
/// back. Work that comes in between begins the countdown anew.
void PlaybackThread::waitWhileHalted() {
    FlaggedEvent& playing = engine.output.device.running;
    const int timeoutMs = rest == Rest::none      ? quietMs
                          : rest == Rest::cleared ? releaseMs
                                                  : Kernel::forever;
    if (rest == Rest::released) awake.require(false);
    const Woken woken = waitFor(playing, timeoutMs);
    if (rest == Rest::released) awake.require(true);
    if (woken == Woken::deviceChanged) deviceActive = true;
    if (woken != Woken::timedOut) return;

    rest = rest == Rest::none ? Rest::cleared : Rest::released;
    engine.rest(rest == Rest::released);
    followWake();
}

} // namespace velorine
