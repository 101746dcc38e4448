#pragma once

#include "foundation/FxTime.h"
#include "foundation/RecursiveLock.h"

namespace velorine {

class FxChainHost;
class FxStage;

/// A change to the chain, from its begin to its end.
///
/// The chain has been computed far ahead of the speakers. An edit stops the pump, sees to it that a
/// margin is queued, and takes everything behind that margin back, out of every ring from the end
/// of the chain to `stopStage`. Its holder then changes what it wants: a setting, a fade record.
/// The commit lets the chain compute again from there, and the change is heard after the margin.
///
/// Any thread, the playback thread included. Gives back locks, priorities and the pump at its end,
/// also when an exception passes: then the chain goes on by itself, without a commit.
class FxChainEdit {
public:
    /// @param delayMs    margin in ms; -1 takes the engine's `flushMs`, 0 and 1 leave none
    /// @param stopStage  last stage that is sent back, null for all
    FxChainEdit(FxChainHost& chainHost, int delayMs, FxStage* stopStage);
    ~FxChainEdit() noexcept(false); ///< commits; throws what a stage throws
    FxChainEdit(const FxChainEdit&) = delete;
    FxChainEdit& operator=(const FxChainEdit&) = delete;

    /// Ends the edit; a second call does nothing.
    void commit();

    /// Stream time at which the chain was cut.
    FxTime rewoundTo() const noexcept { return cutTime; }

    /// The margin that was to be had, ms.
    int margin() const noexcept { return delayMs; }

private:
    void begin(int delay, FxStage* stopStage);
    void giveBack() noexcept;

    static constexpr int unchanged = -64; ///< a priority that nobody has

    FxChainHost& engine;
    RecursiveLock::Scope editGuard;
    RecursiveLock::Scope pumpGuard;
    int delayMs = 0;
    int savedWorkerPriority = unchanged; ///< of the playback thread
    const int savedPriority;             ///< of the caller
    const int exceptionsBefore;          ///< that were passing when the edit began
    FxTime cutTime = 0;
    bool open = true;
};

} // namespace velorine
