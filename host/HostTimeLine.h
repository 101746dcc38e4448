#pragma once

#include "foundation/FxTime.h"

#include <cstdint>

namespace velorine {

class FxEngine;
class HostStream;

/// The host thinks in ms of its track, the engine on a stream time line that never goes back.
/// Any of the host's threads.
class HostTimeLine {
public:
    HostTimeLine(HostStream& hostStream, FxEngine& fxEngine)
        : stream(hostStream), engine(fxEngine) {}

    /// Ms of the track that are heard now; not behind the point last sought to.
    std::int32_t outputTime();

    /// Ms of the track that were written.
    std::int32_t writtenTime();

    /// The first data after a seek: it begins at the end of what was written, and the host calls
    /// that the position it sought.
    void applyPendingSeek();

    /// After a stop: the time line continues at what is heard, which the host calls `offset`.
    void resync(FxTime offset);

private:
    HostStream& stream;
    FxEngine& engine;
};

} // namespace velorine
