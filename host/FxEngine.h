#pragma once

#include "chain/driver/FxChainHost.h"
#include "foundation/RecursiveLock.h"
#include "kestrix/KestrixStage.h"
#include "kestrix/dsphost/WaDspStage.h"
#include "stages/FaderStage.h"
#include "stages/LimiterStage.h"
#include "stages/MixerStage.h"
#include "stages/PeakEqStage.h"
#include "stages/SpliceStage.h"
#include "stages/TailStage.h"
#include "stages/TestSignalStage.h"
#include "stages/resample/ResampleStage.h"

#include <atomic>
#include <cstdint>

namespace velorine {

/// The one object that owns the chain, its stages, the playback thread and the output side. Lives
/// from the host's `Init` to its `Quit`, across any number of tracks.
///
/// Making one starts no thread and opens nothing, so a second one may stand beside it as an editing
/// copy that only exchanges settings.
class FxEngine final : public FxChainHost {
public:
    explicit FxEngine(const Surroundings& surroundings);
    ~FxEngine() override;

    void exchangeSettings(RegistryNode& node) override;
    void exchangeBeepSetting(RegistryNode& node) override;

    /// Wires the stages, reads `settings` if there are any, and starts the playback thread.
    void start(RegistryNode* settings, bool showOutput);

    /// Takes over settings while the chain runs: they are heard after the usual margin. Switched
    /// off, the processor leaves its headroom to the tail, so that both states sound equally loud.
    void applySettings(RegistryNode& node);

    /// How much of the processor's effect is applied, of its magnitude; heard after `margin`.
    void scaleMagnitude(double scale, int marginMs);

    /// Changes the pause word: sets or clears the bits of `mask`. The chain is cut at the frame
    /// that plays, and a beep is put in there if `beepMask` asks for one and little is queued.
    ///
    /// @param wait  until the output has come to rest
    /// @return the pause word now
    int setPaused(bool on, int mask, int beepMask, bool wait);

    /// Drops what the host wrote and the chain hasn't played, `keepLast`: all but the last of it.
    /// The time line and both axes go on where they end.
    void dropInput(bool keepLast);

    RecursiveLock pauseLock{LockRank::pause};

    // The chain has `fader`, `kestrix`, `resampleA` and `tail`. The others stand ready and take no
    // part: nothing calls them, no settings pass reaches them, until one is added to the chain.
    TailStage tail;
    TestSignalStage testSignal;
    MixerStage mixer;
    ResampleStage resampleA;
    SpliceStage splice;
    ResampleStage resampleB;
    FaderStage fader;
    KestrixStage kestrix;
    WaDspStage dspHost; ///< but for the host's `Config`, which it answers
    LimiterStage limiter;
    PeakEqStage peakEq;
    std::atomic<double> speed{1.0}; ///< tempo
    double secondSpeed = 1.0;       ///< for the second resampler
    std::atomic<bool> beep{true};   ///< a beep on pause
    bool compareHalves = false;     ///< a recording has the effect in a track's first half alone
};

} // namespace velorine
