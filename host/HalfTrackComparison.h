#pragma once

namespace velorine {

class FxEngine;
class HostStream;
class Transport;

/// Records a track with the processor's effect in its first half and without it in its second, for
/// a listener who wants to compare them. Off: no setting turns it on.
///
/// Threads: the host's decoding thread.
class HalfTrackComparison {
public:
    HalfTrackComparison(HostStream& hostStream, FxEngine& fxEngine, Transport& hostTransport)
        : stream(hostStream), engine(fxEngine), transport(hostTransport) {}

    /// Takes the effect away, or puts it back, as the played time asks for it.
    void update();

private:
    double wantedScale();

    HostStream& stream;
    FxEngine& engine;
    Transport& transport;
};

} // namespace velorine
