#pragma once

#include "chain/FxStage.h"
#include "foundation/RecursiveLock.h"
#include "kestrix/dsphost/WaDspWindowThread.h"

#include <atomic>
#include <cstdint>
#include <functional>

struct winampDSPHeader;
struct winampDSPModule;

namespace velorine {

/// The place in the chain where a Winamp DSP plug-in can run: what it makes of the stream in 16-bit
/// stereo goes on.
///
/// In:  any format. Out: 16-bit stereo at the input's rate, as many frames as the plug-in makes of
///      each 1152; fewer wait. Disabled, and without a module, the input by reference.
/// Threads: the pump's for `process`, on which `ModifySamples` runs; everything else of the
/// plug-in's on the window's thread. `enable` from any thread, relaxed; it is acted on at the next
/// `process` or `configure`.
class WaDspStage final : public FxStage {
public:
    /// A plug-in in memory. The stage gives the library back.
    struct Plugin {
        void* library = nullptr; ///< the system's handle
        winampDSPHeader* header = nullptr;
        winampDSPModule* module = nullptr;
    };

    WaDspStage();
    ~WaDspStage() override;

    void exchangeSettings(RegistryNode& node) override;
    void seek(int delta, const FxPos& pos) override;
    bool process(FxArena& arena, FxBlock& out, FxRing& in, int maxFrames) override;

    /// Opens the plug-in's own settings, if there are any, and returns when it does. Any thread but
    /// the window's.
    void configure();

    /// Has one of the `dspMessage`s run on the window's thread, while the audio waits; nothing
    /// without a window. Any thread but the window's.
    void send(unsigned message);

    std::atomic<bool> enable{false};

    /// Where a plug-in comes from when the stage is enabled. Empty: there is none, and the stage
    /// only passes audio on. Set before the stage runs; called under the stage's locks.
    std::function<Plugin()> loader;

    void* parentWindow = nullptr; ///< the host's, once enabled the thread's; guarded by stateLock

    bool hasModule(); ///< any thread

private:
    bool modify(FxArena& sampleArena, FxBlock& out, const FxRing& in);
    void syncState();
    void load();
    void clearModule();
    void receive(unsigned message);
    int modifySamples(std::int16_t* samples, int frames);

    std::int64_t stagePos = 0; ///< input frame that is read next
    std::int32_t cursor = 0;   ///< absolute number of the block that the pass-through reads next

    /// What the plug-in was last given; a rate of 0: nothing yet.
    SampleFormat format{sampleType::int16, 2, 0, fullWidth};

    RecursiveLock stateLock{LockRank::stage}; ///< around a change of state and what is sent
    std::atomic<bool> windowUp{false}; ///< `enable` as last acted on; written under stateLock

    /// Around the plug-in's pointers and each call of it on the pump's thread. The window's thread
    /// doesn't take it: whoever sends it there holds what keeps the plug-in in place.
    RecursiveLock moduleLock{LockRank::module};
    void* dspLibrary = nullptr; ///< written under both locks, as the next two
    winampDSPHeader* dspHeader = nullptr;
    winampDSPModule* dspModule = nullptr;

    WaDspWindowThread windowThread{[this](unsigned message) { receive(message); }};
};

} // namespace velorine
