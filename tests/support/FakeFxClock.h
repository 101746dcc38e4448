#pragma once

#include "chain/FxClock.h"
#include "chain/TimeLine.h"
#include "foundation/FxRing.h"

namespace velorine::test {

/// An engine as a single stage sees it, over a ring that stands for what the host wrote.
class FakeFxClock final : public FxClock {
public:
    FxTime writtenEnd() override { return ring && !ring->empty() ? ring->newest().timeEnd : 0; }
    void wake() override { ++wakes; }
    void requestService() override { ++serviceRequests; }
    std::int64_t timeToPosition(FxTime t) override { return ring ? timeToFrame(*ring, t) : 0; }
    FxTime positionToTime(std::int64_t position) override {
        return ring ? frameToTime(*ring, position) : 0;
    }
    void formatAtTime(FxTime t, SampleFormat* out) override {
        if (const FxBlock* const block = ring ? blockAtTime(*ring, t) : nullptr)
            *out = block->format;
    }
    void exchangeSettings(RegistryNode&) override {}
    void exchangeBeepSetting(RegistryNode&) override {}
    int lagBehind(const FxStage&) const override { return lag; }
    bool playsInRealTime() const override { return realTime; }

    FxRing* ring = nullptr;
    int lag = 0;
    bool realTime = true;
    int wakes = 0;
    int serviceRequests = 0;
};

} // namespace velorine::test
