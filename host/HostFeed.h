#pragma once

#include "foundation/SampleFormat.h"
#include "stages/convert/SampleConverter.h"

#include <cstdint>

namespace velorine {

class FxEngine;
class HalfTrackComparison;
class HostStream;
class HostTimeLine;
class HostWindow;
class TrackNaming;

/// Takes what the host writes into the engine. The host's decoding thread.
class HostFeed {
public:
    static constexpr int permission = 9216; ///< bytes; a constant, and no measure of any buffer

    HostFeed(HostStream& hostStream, FxEngine& fxEngine, HostTimeLine& hostTimeLine,
             TrackNaming& trackNaming, HalfTrackComparison& halfTrackComparison)
        : stream(hostStream), engine(fxEngine), timeLine(hostTimeLine), naming(trackNaming),
          comparison(halfTrackComparison) {}

    /// Takes `bytes` bytes; a part of a frame at their end is ignored.
    void write(const char* data, int bytes);

    /// `permission`, or 0 while the host is far enough ahead.
    int canWrite();

private:
    void take(const char* data, int bytes);
    int leadingSilence(const char* data, int frames, const SampleFormat& format);

    HostStream& stream;
    FxEngine& engine;
    HostTimeLine& timeLine;
    TrackNaming& naming;
    HalfTrackComparison& comparison;
    SampleConverterHandle silenceConverter;
};

} // namespace velorine
