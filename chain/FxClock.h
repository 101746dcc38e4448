#pragma once

#include "foundation/FxTime.h"
#include "foundation/SampleFormat.h"

#include <cstdint>

namespace velorine {

class FxStage;
class RegistryNode;

/// What the stages see of the engine. Any thread, unless told otherwise.
class FxClock {
public:
    virtual ~FxClock() = default;

    /// Stream time at the end of what the host has written; 0 before the first block.
    virtual FxTime writtenEnd() = 0;

    /// There is something new to pull: the playback thread looks again.
    virtual void wake() = 0;

    /// What is queued shall be played, little as it may be.
    virtual void requestService() = 0;

    /// Frame of the host axis at which `t` falls. Time runs on at the newest block's rate behind
    /// the end of what was written, and stands before its beginning.
    virtual std::int64_t timeToPosition(FxTime t) = 0;

    /// The reverse; positions outside of what is held have the time of the nearest end.
    virtual FxTime positionToTime(std::int64_t position) = 0;

    /// Format in which the host wrote the audio at `t`, or at the end nearest to it. Leaves `out`
    /// alone while nothing was written.
    virtual void formatAtTime(FxTime t, SampleFormat* out) = 0;

    /// Loads or saves all settings. Host's main thread or a dialog's, inside an edit.
    virtual void exchangeSettings(RegistryNode& node) = 0;
    virtual void exchangeBeepSetting(RegistryNode& node) = 0;

    /// Frames by which the stages behind `stage` lag the times that they stamp on their blocks.
    virtual int lagBehind(const FxStage& /*stage*/) const { return 0; }

    /// False: the output is a file, which takes all that the chain delivers.
    virtual bool playsInRealTime() const { return true; }
};

} // namespace velorine
