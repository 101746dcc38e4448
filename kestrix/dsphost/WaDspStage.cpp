#include "kestrix/dsphost/WaDspStage.h"

#include "chain/BlockPassing.h"
#include "chain/RingSearch.h"
#include "chain/WindowRead.h"
#include "config/RegistryNode.h"
#include "foundation/Memory.h"
#include "foundation/PriorityScope.h"
#include "kestrix/dsphost/WinampDsp.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace velorine {

namespace {

constexpr int chunkFrames = 1152;  ///< what a plug-in is given at once
constexpr int formatFrames = 4608; ///< room behind a call that only says what the format is
constexpr std::int64_t capacityFor(int frames) {
    return std::int64_t{frames} * 8 + 2304;
}

using Samples = std::unique_ptr<void, MemDeleter>;

Samples allocateSamples(std::int64_t frames, const SampleFormat& format) {
    return Samples{memAlloc(static_cast<std::size_t>(frames * bytesPerFrame(format)))};
}

} // namespace

WaDspStage::WaDspStage() = default;

WaDspStage::~WaDspStage() {
    const RecursiveLock::Scope changing{stateLock};
    const RecursiveLock::Scope inModule{moduleLock};
    clearModule();
}

void WaDspStage::exchangeSettings(RegistryNode& node) {
    bool on = enable.load(std::memory_order_relaxed);
    node.exchangeBool("WaDsp", "enable", on);
    enable.store(on, std::memory_order_relaxed);
}

void WaDspStage::seek(int, const FxPos& pos) {
    nextInput = stagePos = pos.whole;
}

bool WaDspStage::hasModule() {
    const RecursiveLock::Scope inModule{moduleLock};
    return dspModule != nullptr;
}

// -- State -------------------------------------------------------------------------------------

void WaDspStage::configure() {
    const RecursiveLock::Scope changing{stateLock}; // a plug-in stays while its dialog is open
    syncState();
    windowThread.send(dspMessage::config);
}

void WaDspStage::send(unsigned message) {
    const RecursiveLock::Scope changing{stateLock};
    const RecursiveLock::Scope inModule{moduleLock};
    windowThread.send(message);
}

/// Acts on `enable`. State lock held.
void WaDspStage::syncState() {
    const bool on = enable.load(std::memory_order_relaxed);
    if (on == windowUp.load(std::memory_order_relaxed)) return;
    const RecursiveLock::Scope inModule{moduleLock};
    clearModule();
    if (on) {
        windowThread.start();
        parentWindow = windowThread.window();
        load();
        if (!dspModule || !dspHeader) clearModule();
    }
    windowUp.store(on, std::memory_order_relaxed);
}

void WaDspStage::load() {
    if (!loader) return;
    const Plugin plugin = loader();
    dspLibrary = plugin.library;
    dspHeader = plugin.header;
    dspModule = plugin.module;
    if (!dspModule) return;
    dspModule->hwndParent = parentWindow;
    dspModule->hDllInstance = dspLibrary;
    windowThread.send(dspMessage::init);
}

/// Ends the plug-in and gives its library back. Both locks held.
void WaDspStage::clearModule() {
    if (dspLibrary) {
        windowThread.send(dspMessage::quit);
        releaseDspLibrary(dspLibrary);
    }
    dspLibrary = nullptr;
    dspModule = nullptr;
    dspHeader = nullptr;
}

/// On the window's thread, while the sender waits.
void WaDspStage::receive(unsigned message) {
    switch (message) {
    case dspMessage::init:
        if (dspLibrary && dspModule && dspModule->Init(dspModule) != 0) dspModule = nullptr;
        break;
    case dspMessage::config:
        if (dspModule) dspModule->Config(dspModule);
        break;
    case dspMessage::quit:
        if (dspModule) dspModule->Quit(dspModule);
        break;
    case dspMessage::format: {
        if (!dspModule) break;
        const Samples samples = allocateSamples(formatFrames, format);
        modifySamples(static_cast<std::int16_t*>(samples.get()), 0);
        break;
    }
    default:
        break;
    }
}

// -- Audio -------------------------------------------------------------------------------------

bool WaDspStage::process(FxArena& sampleArena, FxBlock& out, FxRing& in, int maxFrames) {
    if (maxFrames == 0) return false;
    const bool on = enable.load(std::memory_order_relaxed);
    if (on && in.end() <= stagePos) return false;
    // While somebody else is at it, an open dialog maybe, the audio goes on as it is.
    if (on != windowUp.load(std::memory_order_relaxed) && stateLock.users() == 0) {
        const RecursiveLock::Scope changing{stateLock};
        syncState();
    }
    bool made = false;
    {
        const RecursiveLock::Scope inModule{moduleLock};
        made = on && dspModule ? modify(sampleArena, out, in)
                               : passBlock(sampleArena, out, in, converter, stagePos, cursor);
    }
    nextInput = stagePos;
    return made;
}

bool WaDspStage::modify(FxArena& sampleArena, FxBlock& out, const FxRing& in) {
    if (in.end() - stagePos < chunkFrames) return false;
    const SampleFormat wanted{sampleType::int16, 2, formatAtFrame(in, stagePos).rate, fullWidth};
    const bool formatChanged = format.rate != 0 && format != wanted;
    format = wanted;

    const std::int64_t capacity = capacityFor(chunkFrames);
    const Samples samples = allocateSamples(capacity, format);
    auto* const frames = static_cast<std::int16_t*>(samples.get());
    const FrameWindow window = readWindow(in, converter, format, stagePos, chunkFrames);
    std::memcpy(frames, window.samples.get(),
                std::size_t{chunkFrames} * static_cast<std::size_t>(bytesPerFrame(format)));
    if (formatChanged) {
        const PriorityScope normal{priorityNormal}; // a plug-in may take its time over this
        modifySamples(frames, 0);
    }
    const int count =
        static_cast<int>(std::clamp<std::int64_t>(modifySamples(frames, chunkFrames), 0, capacity));
    out.clear();
    out.format = format;
    if (count > 0)
        std::memcpy(out.allocate(sampleArena, format, count), frames,
                    static_cast<std::size_t>(count) *
                        static_cast<std::size_t>(bytesPerFrame(format)));

    out.timeStart = timeAtFrame(in, stagePos);
    out.srcStart = stagePos << 16;
    stagePos += chunkFrames;
    out.timeEnd = timeAtFrame(in, stagePos);
    out.srcEnd = stagePos << 16;
    return true;
}

int WaDspStage::modifySamples(std::int16_t* samples, int frames) {
    return dspModule->ModifySamples(dspModule, samples, frames, bitsPerSample(format.type),
                                    format.channels, format.rate);
}

} // namespace velorine
