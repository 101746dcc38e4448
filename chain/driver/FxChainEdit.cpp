#include "chain/driver/FxChainEdit.h"

#include "chain/driver/FxChainHost.h"
#include "foundation/PriorityScope.h"

#include <algorithm>
#include <exception>

namespace velorine {

namespace {
constexpr int everything = 100'000; ///< ms; further than anything is queued
constexpr int longestMargin = 400;
constexpr int deepEdit = 700; ///< from here on the look-ahead behind the margin may stay
} // namespace

FxChainEdit::FxChainEdit(FxChainHost& chainHost, int delay, FxStage* stopStage)
    : engine(chainHost), savedPriority(kernel().currentPriority()),
      exceptionsBefore(std::uncaught_exceptions()) {
    try {
        begin(delay, stopStage);
    } catch (...) {
        giveBack();
        throw;
    }
}

FxChainEdit::~FxChainEdit() noexcept(false) {
    if (!open) return;
    if (std::uncaught_exceptions() > exceptionsBefore)
        giveBack();
    else
        commit();
}

void FxChainEdit::begin(int delay, FxStage* stopStage) {
    const int raisedPriority = std::max(savedPriority, priorityHighest);
    if (raisedPriority != savedPriority) kernel().setCurrentPriority(raisedPriority);

    if (delay == -1) delay = engine.flushMs.load(std::memory_order_relaxed);
    editGuard.moveTo(engine.editLock);
    engine.editRequested.set();
    engine.workAvailable.set();

    const int rewindDepth = delay > 0 ? everything : 0;
    int firstMargin = std::min(delay, longestMargin);
    if (firstMargin < 2) firstMargin = 0;
    delayMs = std::max(delay, 0);

    if (!engine.playbackThread.isCurrent() && engine.playbackThread.priority() < raisedPriority) {
        savedWorkerPriority = engine.playbackThread.priority();
        engine.playbackThread.setPriority(raisedPriority);
    }
    pumpGuard.moveTo(engine.pumpLock);
    engine.prefill(firstMargin);
    engine.rewindStopStage = stopStage;
    if (delayMs < deepEdit) engine.rewind(rewindDepth, 0, true);
    delayMs = std::min(delayMs, engine.prefill(delayMs));
    engine.rewindStopStage = stopStage;
    cutTime = engine.rewind(delayMs, 0, false);
}

void FxChainEdit::commit() {
    if (!open) return;
    try {
        engine.resume(delayMs);
    } catch (...) {
        giveBack();
        throw;
    }
    giveBack();
}

void FxChainEdit::giveBack() noexcept {
    open = false;
    engine.editRequested.reset();
    engine.resumeEvent.set(); // for nobody, if the thread doesn't stand: that does no harm
    pumpGuard.giveBack();
    engine.wake();
    if (savedWorkerPriority > unchanged) engine.playbackThread.setPriority(savedWorkerPriority);
    editGuard.giveBack();
    if (kernel().currentPriority() != savedPriority) kernel().setCurrentPriority(savedPriority);
}

} // namespace velorine
