#include "chain/driver/FxChainHost.h"

#include "chain/RingAppend.h"
#include "chain/RingSearch.h"
#include "chain/TimeLine.h"
#include "chain/driver/FxChainEdit.h"
#include "config/RegistryNode.h"
#include "foundation/PriorityScope.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace velorine {

namespace {
constexpr int pumpFrames = 1152; ///< asked of a stage at a time
constexpr int prefillLimitMs = 330;
constexpr std::uint32_t prefillTimeoutMs = 2000;
} // namespace

FxChainHost::FxChainHost(const Surroundings& surroundings)
    : playbackThread(*this, surroundings.awake),
      output(surroundings.clock, *this, input.arenaStore, surroundings.sound, surroundings.files,
             [this] { return isIdle(); }) {}

FxChainHost::~FxChainHost() {
    stopChain();
}

void FxChainHost::addStage(FxStage& stage) {
    rings.push_back(std::make_unique<FxRing>());
    chain.push({&stage, rings.back().get()});
}

void FxChainHost::startChain(bool showOutput) {
    for (int i = 0; i < chain.count(); ++i) {
        FxStage& stage = *chain[i].stage;
        stage.inRing = i > 0 ? chain[i - 1].ring : nullptr;
        stage.outRing = chain[i].ring;
        stage.clock = this;
        stage.arena = &input.arenaStore;
    }
    input.notifier = this;
    output.start(lastRing(), showOutput);
    { FxChainEdit(*this, 0, nullptr).commit(); } // everything begins at the start of its axis
    wake();
    if (!playbackThread.isRunning()) playbackThread.start(priorityTimeCritical, true);
}

void FxChainHost::stopChain() {
    playbackThread.join();
    output.stopThreads();
}

// -- FxClock -----------------------------------------------------------------------------------

FxTime FxChainHost::writtenEnd() {
    const RWLock::ReadScope guard{input.hostRingLock};
    return input.hostRing.empty() ? 0 : input.hostRing.newest().timeEnd;
}

void FxChainHost::wake() {
    inputStarved.reset();
    playbackThread.wakeEvent.set();
    workAvailable.set();
}

void FxChainHost::requestService() {
    serviceRequested.store(true, std::memory_order_relaxed);
}

std::int64_t FxChainHost::timeToPosition(FxTime t) {
    const RWLock::ReadScope guard{input.hostRingLock};
    return timeToFrame(input.hostRing, t);
}

FxTime FxChainHost::positionToTime(std::int64_t position) {
    const RWLock::ReadScope guard{input.hostRingLock};
    return frameToTime(input.hostRing, position);
}

void FxChainHost::formatAtTime(FxTime t, SampleFormat* out) {
    const RWLock::ReadScope guard{input.hostRingLock};
    if (const FxBlock* const block = blockAtTime(input.hostRing, t)) *out = block->format;
}

void FxChainHost::exchangeSettings(RegistryNode& node) {
    std::int32_t ms = flushMs.load(std::memory_order_relaxed);
    node.exchangeInt("General", "flush_ms", ms);
    flushMs.store(ms, std::memory_order_relaxed);
    output.exchangeSettings(node);
    exchangeBeepSetting(node);
}

int FxChainHost::lagBehind(const FxStage& stage) const {
    int lag = 0;
    for (int i = chain.count() - 1; i >= 0 && chain[i].stage != &stage; --i)
        lag += chain[i].stage->lagFrames();
    return lag;
}

bool FxChainHost::isIdle() const noexcept {
    return chainBlocked.load(std::memory_order_relaxed) || inputStarved.isSet();
}

// -- Pumping -----------------------------------------------------------------------------------

FxOutput::Pace FxChainHost::pace() {
    return {&playbackThread.stop, &editRequested, true};
}

FxOutput::Pace FxChainHost::editPace() {
    return {&playbackThread.stop, nullptr, false};
}

/// Asks stage `index` for a block. A stage that is held marks where it stands.
bool FxChainHost::runStage(int index, FxBlock& block) {
    FxStage& stage = *chain[index].stage;
    FxRing& in = index > 0 ? *chain[index - 1].ring : noInput;
    block = FxBlock{};
    stage.standing = false;
    if (!stage.process(input.arenaStore, block, in, stage.held() ? 0 : pumpFrames)) return false;
    if (stage.standing) {
        chainBlocked.store(true, std::memory_order_relaxed);
        endStage = &stage;
        if (!chain[index].ring->empty()) block.format = chain[index].ring->newest().format;
    }
    return true;
}

void FxChainHost::commit(int index, FxBlock block) {
    const bool reachesEnd = index == chain.count() - 1 && !block.empty();
    if (reachesEnd) starvedForInput.store(false, std::memory_order_relaxed);
    commitTo(*chain[index].ring, std::move(block));
}

bool FxChainHost::pump(bool) {
    const bool insideEdit = editLock.heldByCaller();
    const FxOutput::Pace servicePace = insideEdit ? editPace() : pace();
    if (output.service(servicePace)) return true;

    FxBlock block;
    int index = chain.count() - 1;
    while (index >= 0 && !runStage(index, block))
        --index;
    if (index < 0) return false;
    commit(index, std::move(block));
    if (editRequested.isSet()) return true;

    for (++index; index < chain.count(); ++index) {
        if (!runStage(index, block)) return true;
        commit(index, std::move(block));
        if (editRequested.isSet()) return true;
    }
    chainEndPosition = lastRing().end();
    output.service(servicePace);
    return true;
}

/// One step with what belongs to it. Pump lock held.
bool FxChainHost::pass(bool first) {
    chainBlocked.store(false, std::memory_order_relaxed);
    endStage = nullptr;
    const bool done = pump(first);
    chainEndPosition = lastRing().end();
    trim();
    chainStarved.store(!done, std::memory_order_relaxed);
    return done;
}

/// What is queued shall be heard although nothing follows for now.
void FxChainHost::serveDevice() {
    if (!chainBlocked.load(std::memory_order_relaxed) &&
        !serviceRequested.load(std::memory_order_relaxed))
        return;
    serviceRequested.store(false, std::memory_order_relaxed);
    output.playWhatIsQueued();
}

void FxChainHost::runPlayback(FlaggedEvent& stopEvent) {
    const int entryPriority = kernel().currentPriority();
    const PriorityScope restored{entryPriority};
    int mode = -1;
    for (bool first = true;; first = false) {
        if (editRequested.isSet()) {
            parkedEvent.set();
            resumeEvent.wait();
            resumeEvent.reset();
            parkedEvent.reset();
        }
        if (mode != output.outputMode) {
            mode = output.outputMode;
            kernel().setCurrentPriority(mode != 0 ? std::min(entryPriority, priorityNormal)
                                                  : entryPriority);
        }
        bool done = false;
        {
            const RecursiveLock::Scope pumping{pumpLock};
            done = pass(first);
        }
        const bool blocked = chainBlocked.load(std::memory_order_relaxed);
        if (!done && !blocked) {
            starvedForInput.store(true, std::memory_order_relaxed);
            inputStarved.set();
        }
        serveDevice();
        if (blocked) {
            inputStarved.reset();
            starvedForInput.store(false, std::memory_order_relaxed);
            return;
        }
        if (stopEvent.isSet()) return;
        if (!done) break;
    }
    if (serviceRequested.load(std::memory_order_relaxed)) {
        const RecursiveLock::Scope pumping{pumpLock};
        output.outputTail(pace());
    }
}

int FxChainHost::prefill(int targetMs) {
    playbackThread.reap();
    if (!playbackThread.isRunning() || output.outputMode != 0) return 0;
    const auto buffered = [this] { return static_cast<int>(output.bufferedMs()); };
    if (targetMs < 2) return buffered();

    workAvailable.reset();
    PriorityScope raised{PriorityScope::atLeast(prefillPriority)};
    targetMs = std::min(targetMs, prefillLimitMs);
    const std::uint32_t begin = kernel().tickCount();
    for (bool first = true;; first = false) {
        const bool running = output.device.running.isSet();
        if (running && buffered() >= targetMs) break;
        if (running && buffered() > 100) raised.giveBack();
        if (kernel().tickCount() - begin > prefillTimeoutMs) break;
        const bool done = pass(first);
        const bool blocked = chainBlocked.load(std::memory_order_relaxed);
        serveDevice();
        if (!done || blocked || output.waitsForEdit()) break;
    }
    return buffered();
}

void FxChainHost::trim() {
    const std::int64_t played = output.position();
    output.trim(played);
    std::int64_t frame = played;
    for (int i = chain.count() - 1; i >= 0; --i) {
        FxRing& ring = *chain[i].ring;
        const FxPos pos = sourceAt(ring, frame);
        const auto delta = static_cast<int>(frame - ring.end());
        const std::int64_t needed = chain[i].stage->inputStartFor(delta, pos);
        while (ring.count() > 2 && ring.oldest().posEnd <= frame)
            ring.pop();
        frame = needed;
    }
}

bool FxChainHost::drain(int timeoutMs) {
    const std::uint32_t begin = kernel().tickCount();
    {
        const RecursiveLock::Scope pumping{pumpLock};
        output.playWhatIsQueued();
    }
    for (;;) {
        // Asked first: a wake that nobody has followed yet outdates what the last step found.
        const bool woken = playbackThread.wakeEvent.isSet();
        // In frames: the last part of a millisecond is heard, too.
        const bool empty = output.queuedFrames() == 0;
        if (empty && chainBlocked.load(std::memory_order_relaxed)) return true;
        playbackThread.reap();
        if (!playbackThread.isRunning()) return true;
        if (empty && !woken && chainStarved.load(std::memory_order_relaxed)) return true;
        // Whoever holds the lock serves the output, maybe until a whole format has played; what was
        // asked above says nothing before that step has ended.
        do {
            if (timeoutMs >= 0 &&
                kernel().tickCount() - begin >= static_cast<std::uint32_t>(timeoutMs))
                return false;
            kernel().sleep(5);
        } while (pumpLock.users() > 0);
        const RecursiveLock::Scope pumping{pumpLock};
        output.outputTail(pace());
    }
}

// -- The way back ------------------------------------------------------------------------------

FxTime FxChainHost::rewind(int ms, unsigned flags, bool force) {
    assert(editLock.heldByCaller() && pumpLock.heldByCaller());
    workAvailable.reset();
    playbackThread.reap();
    if (!playbackThread.isRunning()) return 0;
    trim();

    const std::int64_t rate = output.rate();
    const std::int64_t written = output.writtenEnd();
    if (ms == 1) ms = 0;
    const std::int64_t wanted = output.position() + rate * ms / 1000;
    if (ms > 1 && !force && wanted >= written + rate) return output.timeAt(written);
    const std::int64_t cut = cutRings(std::min(wanted, written), flags);
    checkInvariants();
    return timeAtFrame(lastRing(), cut);
}

/// Cuts the rings so that the last one ends at `target`, or as near behind it as the last stage and
/// the device allow, and sends the stages back. @return where it ends
std::int64_t FxChainHost::cutRings(std::int64_t target, unsigned flags) {
    const bool discard = (flags & discardAll) != 0;
    const auto distance = [](const FxRing& ring, std::int64_t end) {
        return static_cast<int>(std::min<std::int64_t>(end - ring.end(), 0));
    };

    int index = chain.count() - 1;
    int delta = distance(lastRing(), target);
    if (!discard) {
        const FxPos pos = sourceAt(lastRing(), lastRing().end() + delta);
        delta = std::min(chain[index].stage->alignRewind(delta, pos), 0);
    }
    // The output end may lie before the ring's: a beep that the device hasn't got yet stays.
    const std::int64_t outputEnd = output.rewindTo(lastRing().end() + delta);
    delta = distance(lastRing(), std::max(lastRing().end() + delta, outputEnd));
    const std::int64_t end = lastRing().end() + delta;

    for (;; --index) {
        FxStage& stage = *chain[index].stage;
        FxRing& ring = *chain[index].ring;
        FxPos pos = sourceAt(ring, ring.end() + delta);
        if (!discard && index < chain.count() - 1) {
            delta = std::min(stage.alignRewind(delta, pos), 0);
            pos = sourceAt(ring, ring.end() + delta);
        }
        const bool last = index == 0 || &stage == rewindStopStage;
        const std::int64_t inputEnd = last ? 0 : stage.inputEndFor(delta, pos);
        ring.truncate(ring.end() + delta);
        if (discard) {
            stage.reset();
            if (!ring.empty()) ring.clearTo(ring.endMarker());
        }
        stage.seek(delta, pos);
        if (last) return end;
        delta = distance(*chain[index - 1].ring, inputEnd);
    }
}

void FxChainHost::resume(int ms) {
    if (ms < 2) ms = 0;
    playbackThread.reap();
    editRequested.reset(); // also without a thread: nobody else would
    if (!playbackThread.isRunning()) return;
    input.arenaStore.trim();
    resumeEvent.set();
    ms = std::min(ms, 200);
    workAvailable.reset();
    chainBlocked.store(false, std::memory_order_relaxed);
    chainStarved.store(false, std::memory_order_relaxed);
    endStage = nullptr;
    if (output.outputMode == 0) prefill(std::max(ms, 100));
    chainEndPosition = lastRing().end();
    if (serviceRequested.exchange(false, std::memory_order_relaxed)) output.outputTail(editPace());
}

void FxChainHost::rest(bool releaseDevice) {
    FxChainEdit edit{*this, -1, nullptr};
    if (output.device.halted.isSet()) {
        rewind(1, discardAll, true);
        output.device.stop();
        if (releaseDevice) output.device.close();
    }
    edit.commit();
}

void FxChainHost::checkInvariants() {
#ifndef NDEBUG
    for (const FxChainEntry& entry : chain) {
        const FxRing& ring = *entry.ring;
        for (int i = 0; i < ring.count(); ++i) {
            const FxBlock& block = ring.at(i);
            assert(block.posEnd - block.posStart == block.frames());
            assert(block.timeEnd >= block.timeStart && block.srcEnd >= block.srcStart);
            if (i == 0) continue;
            assert(block.posStart == ring.at(i - 1).posEnd);
            assert(block.timeStart >= ring.at(i - 1).timeEnd);
        }
    }
    for (const FxChainEntry& entry : chain)
        entry.stage->checkPlace(entry.ring->end());
    output.checkInvariants();
#endif
}

} // namespace velorine
