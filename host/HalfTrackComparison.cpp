#include "host/HalfTrackComparison.h"

#include "host/FxEngine.h"
#include "host/HostStream.h"
#include "host/Transport.h"

namespace velorine {

namespace {
constexpr int marginMs = 120;
}

double HalfTrackComparison::wantedScale() {
    if (engine.output.outputMode == 0 || !engine.compareHalves) return 1.0;
    const FxTime length = transport.trackLength();
    if (length <= 0) return 1.0;
    const FxTime played = engine.output.played() - stream.times().trackStart;
    return played >= length / 2 ? 0.0 : 1.0;
}

void HalfTrackComparison::update() {
    const double wanted = wantedScale();
    if (static_cast<float>(wanted) == static_cast<float>(engine.kestrix.parameters.magnitudeScale))
        return;
    engine.scaleMagnitude(wanted, marginMs);
}

} // namespace velorine
