#pragma once

namespace velorine {

/// The order in which locks are taken: a thread that holds one only takes locks of a higher rank.
/// Debug builds stop at the first lock taken out of order.
enum class LockRank : int {
    pause = 1,
    edit,
    pump,
    stage,    ///< state that a stage shares with dialogs or with the host
    module,   ///< a plug-in that a stage hosts
    ring,     ///< host ring, device ring
    command,  ///< taken before the device's locks: the command thread needs those itself
    device,   ///< the controller's reader lock
    buffer,   ///< the device buffer's cursors
    position, ///< the device's 64-bit positions
    stream,   ///< the device's stream state
    recorder,
    planner, ///< FFT plans
    threads, ///< list of running threads
    arena,
    leaf,      ///< nothing is taken while one of these is held,
    primitive, ///< but what the other locks and events are built from
};

#ifdef NDEBUG
inline void noteLockTaken(LockRank) noexcept {}
inline void noteLockGiven(LockRank) noexcept {}
#else
/// Ends the process when the calling thread holds a lock of this rank or a higher one.
void noteLockTaken(LockRank rank) noexcept;
void noteLockGiven(LockRank rank) noexcept;
#endif

} // namespace velorine
