#pragma once

#include "chain/FxChainEntry.h"
#include "chain/FxClock.h"
#include "chain/FxStage.h"
#include "chain/HostInputStage.h"
#include "chain/driver/FxOutput.h"
#include "chain/driver/PlaybackThread.h"
#include "foundation/DynArray.h"
#include "foundation/FlaggedEvent.h"
#include "foundation/RecursiveLock.h"
#include "foundation/SystemClock.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace velorine {

/// The chain and what drives it: the pump, the way back, and the output side behind it.
///
/// The playback thread pulls from the end: it asks the last stage, goes back to the nearest stage
/// that can deliver, and forward from there. Whoever holds the pump lock may do the same; an edit
/// (`FxChainEdit`) takes it, moves the rings and the stages back, and lets the chain compute again.
class FxChainHost : public FxClock {
public:
    /// What the engine takes from its surroundings. They outlive it.
    struct Surroundings {
        const SystemClock& clock;
        SoundSystem* sound; ///< null: only the null target is there
        RecorderFiles& files;
        KeepAwake& awake;
    };

    explicit FxChainHost(const Surroundings& surroundings);
    ~FxChainHost() override;

    // -- FxClock -------------------------------------------------------------------------------

    FxTime writtenEnd() override;
    void wake() override;
    void requestService() override;
    std::int64_t timeToPosition(FxTime t) override;
    FxTime positionToTime(std::int64_t position) override;
    void formatAtTime(FxTime t, SampleFormat* out) override;
    void exchangeSettings(RegistryNode& node) override;
    void exchangeBeepSetting(RegistryNode&) override {}
    int lagBehind(const FxStage& stage) const override;
    bool playsInRealTime() const override { return output.outputMode == 0; }

    // -- Pumping -------------------------------------------------------------------------------

    /// One step: a block from the nearest stage that has one, carried as far forward as it goes,
    /// and a slice for the output. Pump lock held.
    /// @param first  the first step after a wake; makes no difference
    /// @return whether anything was done
    bool pump(bool first);

    /// Pumps until there is nothing to pull or the chain stands. Playback thread only: this is
    /// where it parks for an edit.
    void runPlayback(FlaggedEvent& stopEvent);

    /// Pumps on the caller's thread until `targetMs` (330 at most) are queued in a running device,
    /// or the chain has no more, or two seconds have passed. Pump lock held.
    /// @return ms queued; 0 without a playback thread or a device
    int prefill(int targetMs);

    /// Drops what the speakers have passed. Pump lock held.
    void trim();

    /// Waits until everything that was written has been played.
    /// @param timeoutMs  -1 for no limit
    /// @return false when the time ran out
    bool drain(int timeoutMs);

    // -- The way back --------------------------------------------------------------------------

    static constexpr unsigned discardAll = 1; ///< `rewind`: stages forget what they hold

    /// Cuts everything from `ms` behind the playing frame on out of all rings, from the end of the
    /// chain to `rewindStopStage`, and sends their stages back to there. 1 ms counts as 0. What was
    /// played, a beep, and what the device won't give back stay.
    ///
    /// Edit lock and pump lock held.
    /// @param flags  0 or `discardAll`
    /// @param force  also where the end of the queue lies a second or more before that point, and
    ///               there is nothing to cut
    /// @return stream time at the cut; 0 without a playback thread
    FxTime rewind(int ms, unsigned flags, bool force);

    /// Lets the chain run again and queues at least 100 ms of it. Edit lock and pump lock held.
    void resume(int ms);

    /// The output has been dry for a while: drops what the chain holds ahead of its input, and
    /// gives the device back if asked. Playback thread only.
    void rest(bool releaseDevice);

    /// The chain delivered nothing, or stands, and waits for the host or for an edit. Any thread.
    bool isIdle() const noexcept;

    /// Debug builds: every ring is in order and every stage stands at the end of its ring.
    void checkInvariants();

    // Members in the order in which they are made.
    DynArray<FxChainEntry> chain;
    FxStage* rewindStopStage = nullptr;    ///< where a rewind ends, null for the first; edit lock
    std::atomic<bool> chainBlocked{false}; ///< the chain stands; relaxed: a display, the recorder
    std::atomic<bool> chainStarved{false}; ///< the last step did nothing; relaxed
    std::atomic<bool> starvedForInput{false}; ///< until a block reaches the end; relaxed
    int prefillPriority = 15;                 ///< least priority during `prefill`
    HostInputStage input;
    PlaybackThread playbackThread;
    FxOutput output;
    std::atomic<bool> serviceRequested{false}; ///< what is queued shall be played
    std::atomic<int> flushMs{80};              ///< margin that an edit leaves to play; relaxed
    FxStage* endStage = nullptr;               ///< the stage that stands; pump lock
    FlaggedEvent inputStarved;                 ///< the chain has nothing to pull
    std::int64_t chainEndPosition = 0;         ///< end of the last ring; pump lock
    RecursiveLock editLock{LockRank::edit};
    RecursiveLock pumpLock{LockRank::pump};
    FlaggedEvent editRequested; ///< an edit wants the pump to stop
    FlaggedEvent parkedEvent;   ///< the playback thread stands and waits for `resumeEvent`
    FlaggedEvent resumeEvent;
    FlaggedEvent workAvailable;

protected:
    /// Adds a stage at the end of the chain. Only while the engine is made.
    void addStage(FxStage& stage);

    /// Wires the stages, starts the output side and the playback thread.
    void startChain(bool showOutput);

    /// Ends all threads; the chain stands for good. First thing of the most derived destructor.
    void stopChain();

private:
    bool runStage(int index, FxBlock& block);
    void commit(int index, FxBlock block);
    bool pass(bool first);
    void serveDevice();
    FxOutput::Pace pace();
    FxOutput::Pace editPace();
    FxRing& lastRing() { return *chain[chain.count() - 1].ring; }
    std::int64_t cutRings(std::int64_t target, unsigned flags);

    std::vector<std::unique_ptr<FxRing>> rings; ///< of the chain's entries, in place for good
    FxRing noInput;                             ///< what the first stage reads
};

} // namespace velorine
