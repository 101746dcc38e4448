#include "host/Transport.h"

#include "chain/driver/FxChainEdit.h"
#include "host/FxEngine.h"
#include "host/HostStream.h"
#include "host/HostTimeLine.h"
#include "host/HostWindow.h"

#include <algorithm>

namespace velorine {

namespace {

constexpr int defaultSpliceMs = 2500; ///< silence that flushes what the stages look ahead
constexpr int wholeChainMs = 9999;    ///< a margin that leaves everything to play
constexpr float fileGain = 0.25f;     ///< where nobody listens

} // namespace

void Transport::open(int rate, int channels, int bits) {
    stream.trackLength.store(-1);
    stream.startupCalls.store(0);
    stream.update([](HostTimes& times) { times.seekOffset = 0; });
    if (engine.tail.pausedBits.load(std::memory_order_relaxed) != 0) cutWhilePaused();
    stream.paused.store(0);
    engine.setPaused(false, 1, 0, false);
    window.watch();

    SampleFormat format = stream.format();
    if (const int type = typeForHostBits(bits); type >= 0) format.type = type;
    format.rate = rate;
    format.channels = channels;
    stream.setFormat(format);
    stream.skipSilence.store(true);
    stream.silenceFrames.store(0);
}

/// In an edit of its own: the stream leaves what plays for the audio at `at`.
FxTime Transport::fadeTo(FxTime at, const Fade& fade) {
    FxChainEdit edit{engine, fade.marginMs, &engine.fader};
    if (!engine.fader.hasRun()) return at;
    return engine.fader.schedule(-1, at, fade.durationMs, fade.linear, fade.kind, nullptr, false,
                                 fade.spliceMs);
}

/// The audio that waits behind a pause will never be heard.
void Transport::cutWhilePaused() {
    fadeTo(engine.writtenEnd(), {1, 0, true, 0, 250});
    engine.dropInput(false);
}

void Transport::close() {
    if (stream.paused.load() != 0) cutWhilePaused();
    window.send(0, hostMessage::aboutToClose);
    stream.endOfFile.store(window.send(0, hostMessage::goesOn) != 0);

    const FxOutput& output = engine.output;
    if (!output.recordSwitch || output.recorder.recordmode.load(std::memory_order_relaxed) < 1)
        closeLive(stream.endOfFile.load());
    else
        closeRecording();
}

void Transport::closeLive(bool goesOn) {
    if (goesOn) {
        stream.update([](HostTimes& times) {
            times.segmentFrames = 0;
            times.segmentBase = times.timeZero = times.writtenEnd;
        });
    } else {
        if (fadeOnStop.load())
            fadeTo(engine.writtenEnd(), {130, 1000, true, 1, defaultSpliceMs});
        else
            fadeTo(engine.writtenEnd(), {1, 0, true, 1, 0});
        stream.fadeInKind.store(fadeInAfterStop);
        timeLine.resync(0);
        stream.update([](HostTimes& times) {
            times.seekPending = true;
            times.pendingSeek = 0;
        });
    }
    const FxTime end = engine.writtenEnd();
    stream.update([end](HostTimes& times) { times.trackStart = end; });
    stream.skipSilence.store(true);
    stream.silenceFrames.store(0);
    engine.output.recorder.close();
}

void Transport::closeRecording() {
    fadeTo(engine.writtenEnd(), {wholeChainMs, 1000, true, 1, defaultSpliceMs});
    engine.drain(-1);
    fadeTo(engine.writtenEnd(), {wholeChainMs, 0, true, 0, 250});
    engine.dropInput(false);
    engine.output.recorder.close();
    { const FxChainEdit edit{engine, wholeChainMs, &engine.fader}; }
    stream.fadeInKind.store(fadeInAfterStop);
    timeLine.resync(0);
    stream.update([](HostTimes& times) {
        times.seekPending = true;
        times.pendingSeek = 0;
    });
}

void Transport::flush(int ms) {
    const FxTime ticks = std::int64_t{ms} * ticksPerMs;
    stream.startupCalls.store(0);
    if (fadeOnSeek.load())
        fadeTo(engine.writtenEnd(), {-1, 1500, false, 1, defaultSpliceMs});
    else
        fadeTo(engine.writtenEnd(), {1, 0, false, 1, 0});
    if (stream.paused.load() != 0) cutWhilePaused();

    const FxTime end = engine.writtenEnd();
    stream.fadeInKind.store(fadeInAfterSeek);
    stream.update([end, ticks](HostTimes& times) {
        times.seekPending = true;
        times.pendingSeek = times.seekOffset = ticks;
        times.trackStart = end - ticks;
    });
}

int Transport::pause(int on) {
    timeLine.applyPendingSeek();
    if (on == 0) {
        engine.setPaused(false, 1, 1, false);
    } else {
        engine.setPaused(true, 1, 1, false);
        FxChainEdit edit{engine, 1, &engine.fader};
        const HostTimes times = stream.times();
        const FxTime heard = std::max(engine.output.played(), times.trackStart + times.seekOffset);
        if (engine.fader.hasRun())
            engine.fader.schedule(-1, heard, 0, true, 0, nullptr, false, defaultSpliceMs);
    }
    return stream.paused.exchange(on);
}

void Transport::setVolume(int volume) {
    if (volume < 0) return;
    volumeLevel.store(static_cast<float>(volume) / 255.0f);
    const bool audible = engine.output.outputMode == 0 && !engine.output.device.isNullTarget();
    const float wanted = volumeLevel.load() * panGain.load() * (audible ? 1.0f : fileGain);
    if (gain.exchange(wanted) == wanted) return;
    engine.output.setVolume(static_cast<double>(wanted));
}

void Transport::setPan(int pan) {
    if (pan < -128 || pan > 128) return;
    if (pan >= -1 && pan <= 1) pan = 0;
    const float wanted = static_cast<float>(pan) / 128.0f;
    if (panPosition.exchange(wanted) == wanted) return;
    engine.output.setPan(static_cast<double>(wanted));
}

FxTime Transport::trackLength() {
    if (stream.trackLength.load() < 0)
        stream.trackLength.store(
            std::max<std::intptr_t>(window.send(1, hostMessage::trackLength), 0) * ticksPerSecond);
    return stream.trackLength.load();
}

} // namespace velorine
