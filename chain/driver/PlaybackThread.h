#pragma once

#include "foundation/KeepAwake.h"
#include "foundation/Thread.h"

#include <cstdint>

namespace velorine {

class FxChainHost;

/// Pumps the chain whenever there is something to do, and lets go of an idle output.
class PlaybackThread final : public Thread {
public:
    PlaybackThread(FxChainHost& chainHost, KeepAwake& keepAwake)
        : engine(chainHost), awake(keepAwake) {}
    ~PlaybackThread() override { join(); }

    std::uint32_t run() override;

    FlaggedEvent wakeEvent; ///< there is something to do

private:
    enum class Woken { stop, work, deviceChanged, timedOut };

    /// What was done about an output that stands.
    enum class Rest { none, cleared, released };

    Woken waitFor(FlaggedEvent& device, int timeoutMs);
    void followWake();
    void waitWhilePlaying();
    void waitWhileHalted();

    FxChainHost& engine;
    KeepAwake& awake;
    bool deviceActive = true; ///< the device is believed to play; this thread only
    Rest rest = Rest::none;   ///< this thread only
};

} // namespace velorine
