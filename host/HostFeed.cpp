#include "host/HostFeed.h"

#include "chain/driver/FxChainEdit.h"
#include "foundation/Memory.h"
#include "foundation/PriorityScope.h"
#include "host/FxEngine.h"
#include "host/HalfTrackComparison.h"
#include "host/HostStream.h"
#include "host/HostTimeLine.h"
#include "host/TrackNaming.h"

#include <algorithm>
#include <cmath>
#include <memory>

namespace velorine {

namespace {

constexpr FxTime farAhead = 8'000'000;    ///< 0.8 s: further ahead the host has to wait
constexpr float silenceThreshold = 0.01f; ///< -40 dB
constexpr int freeCalls = 3;              ///< permissions after an open or a seek
constexpr int fadeInEditMs = 120;
constexpr int spliceMs = 2500;

/// Other threads of the host come first while the engine runs as fast as it can.
void letOthersRun() {
    const PriorityScope idle{priorityIdle};
}

} // namespace

void HostFeed::write(const char* data, int bytes) {
    const PriorityScope raised{priorityHighest};
    if (naming.switchedOn()) naming.check();
    if (data && bytes > 0) take(data, bytes);
    stream.writeCredit.store(2);
}

void HostFeed::take(const char* data, int bytes) {
    const SampleFormat format = stream.format();
    if (format.channels <= 0 || format.channels > SampleConverter::maxChannels) return;
    const int frameBytes = bytesPerFrame(format);
    const int frames = bytes / frameBytes;

    if (engine.output.outputMode != 0) stream.skipSilence.store(false);
    const int dropped = stream.skipSilence.load() ? leadingSilence(data, frames, format) : 0;

    timeLine.applyPendingSeek();
    FxTime start = 0;
    FxTime end = 0;
    stream.update([&](HostTimes& times) {
        start = times.writtenEnd;
        times.segmentFrames += frames; // skipped silence is time that passes in no samples
        const std::int64_t ticks = ticksPerSecond * times.segmentFrames;
        end = times.segmentBase + (format.rate > 0 ? ticks / format.rate : ticks);
    });

    const int fadeIn = stream.fadeInKind.load();
    if (dropped < frames && fadeIn != 0) {
        FxChainEdit edit{engine, fadeInEditMs, &engine.fader};
        if (engine.fader.hasRun())
            engine.fader.schedule(-1, start, fadeIn == fadeInAfterStop ? 40 : 160, false, 0,
                                  nullptr, false, spliceMs);
        stream.fadeInKind.store(0);
    }
    comparison.update();
    const std::int64_t skipped = std::int64_t{dropped} * frameBytes;
    engine.input.append(format, data + skipped, std::int64_t{frames} * frameBytes - skipped, start,
                        end);
    stream.update([end](HostTimes& times) { times.writtenEnd = end; });
    if (engine.output.outputMode != 0) letOthersRun();
}

/// Silent frames at the head of this write, as far as the search for the track's first sound goes.
int HostFeed::leadingSilence(const char* data, int frames, const SampleFormat& format) {
    if (frames <= 0) return 0;
    const std::unique_ptr<void, MemDeleter> samples{
        memAlloc(static_cast<std::size_t>(frames) * sizeof(float))};
    auto* const values = static_cast<float*>(samples.get());
    // The first channel alone: opposite channels must not cancel out to silence.
    SampleFormat firstChannel = format;
    firstChannel.channels = 1;
    const SampleFormat asFloat{sampleType::float32, 1, format.rate, fullWidth};
    silenceConverter.convert({data, frames, bytesPerFrame(format)}, firstChannel,
                             {values, frames, static_cast<int>(sizeof(float))}, asFloat);

    const std::int64_t limit = std::int64_t{2} * format.rate;
    int examined = stream.silenceFrames.load();
    int silent = 0;
    while (silent < frames && examined < limit && std::fabs(values[silent]) < silenceThreshold) {
        ++silent;
        ++examined;
    }
    stream.silenceFrames.store(examined);
    if (silent < frames) stream.skipSilence.store(false);
    return silent;
}

int HostFeed::canWrite() {
    const bool starving = engine.inputStarved.isSet(); // the wake below clears it
    const FxTime ahead = stream.times().writtenEnd - engine.output.played();
    if (stream.startupCalls.load() < freeCalls) {
        stream.startupCalls.fetch_add(1);
        return permission;
    }
    engine.input.wantsData.store(false, std::memory_order_relaxed);
    if (engine.input.notifier) engine.input.notifier->wake();
    if (starving) {
        stream.writeCredit.store(std::max(stream.writeCredit.load() - 1, 0));
        return permission;
    }
    const bool aboutToFade = stream.fadeInKind.load() != 0 || stream.times().seekPending;
    return !aboutToFade && ahead > farAhead ? 0 : permission;
}

} // namespace velorine
