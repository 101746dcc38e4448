#include "host/FxEngine.h"

#include "chain/driver/FxChainEdit.h"
#include "config/RegistryNode.h"

#include <cmath>

namespace velorine {

namespace {
constexpr int beepDelayMs = 87; ///< with more than this queued a beep would come too late
}

FxEngine::FxEngine(const Surroundings& surroundings) : FxChainHost(surroundings) {
    addStage(input);
    addStage(fader);
    addStage(kestrix);
    addStage(resampleA);
    addStage(tail);
}

FxEngine::~FxEngine() {
    stopChain(); // the stages go before the base class does
}

void FxEngine::exchangeSettings(RegistryNode& node) {
    FxChainHost::exchangeSettings(node);
    for (const FxChainEntry& entry : chain)
        entry.stage->exchangeSettings(node);
}

void FxEngine::exchangeBeepSetting(RegistryNode& node) {
    bool value = beep.load(std::memory_order_relaxed);
    node.exchangeBool("General", "beep", value);
    beep.store(value, std::memory_order_relaxed);
}

void FxEngine::start(RegistryNode* settings, bool showOutput) {
    if (settings) exchangeSettings(*settings);
    startChain(showOutput);
}

void FxEngine::applySettings(RegistryNode& node) {
    FxChainEdit edit{*this, -1, nullptr};
    const KestrixParameters& processor = kestrix.parameters;
    const bool wasOn = processor.enable;
    const double headroomBefore = processor.headroom;
    exchangeSettings(node);
    if (processor.enable != wasOn || processor.headroom != headroomBefore)
        tail.gain.store(processor.enable ? 1.0 : std::pow(10.0, -processor.headroom / 20.0),
                        std::memory_order_relaxed);
    edit.commit();
}

void FxEngine::scaleMagnitude(double scale, int marginMs) {
    FxChainEdit edit{*this, marginMs, nullptr};
    kestrix.parameters.magnitudeScale = scale;
    kestrix.rebuildPending = true;
    edit.commit();
}

int FxEngine::setPaused(bool on, int mask, int beepMask, bool wait) {
    const bool beepNow = beep.load(std::memory_order_relaxed) && (beepMask & 1) != 0;
    if (!beepNow && mask == 0) return tail.pausedBits.load(std::memory_order_relaxed);

    const RecursiveLock::Scope pausing{pauseLock};
    const int before = tail.pausedBits.load(std::memory_order_relaxed);
    const int now = on ? before | mask : before & ~mask;
    if (!beepNow && (before != 0) == (now != 0)) {
        tail.pausedBits.store(now, std::memory_order_relaxed);
        return now;
    }
    {
        FxChainEdit edit{*this, 1, &fader};
        tail.pausedBits.store(now, std::memory_order_relaxed);
        if (beepNow && (output.outputMode == 1 || output.bufferedMs() < beepDelayMs))
            tail.beepPending.store(2, std::memory_order_relaxed);
        edit.commit();
    }
    if (now != 0 && wait) drain(-1);
    return now;
}

void FxEngine::dropInput(bool keepLast) {
    FxChainEdit edit{*this, -1, nullptr};
    rewindStopStage = nullptr;
    rewind(0, 0, true);
    FxBlock marker = input.dropAll(keepLast);
    marker.srcStart = marker.srcEnd = marker.posEnd << 16;
    // The chain's first ring counts on the host's axis: it goes on at the same frame.
    FxRing& first = *chain[0].ring;
    first.clearTo(marker);
    input.seek(0, FxPos::fromFrame(marker.posEnd));
    fader.nextInput = marker.posEnd;
    edit.commit();
}

} // namespace velorine
