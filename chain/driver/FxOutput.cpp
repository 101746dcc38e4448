#include "chain/driver/FxOutput.h"

#include "chain/BlockPassing.h"
#include "chain/FxClock.h"
#include "chain/RingAppend.h"
#include "chain/RingSearch.h"
#include "chain/TimeLine.h"
#include "chain/driver/OutputPacing.h"
#include "config/RegistryNode.h"
#include "foundation/PriorityScope.h"

#include <algorithm>
#include <cassert>
#include <string>
#include <utility>

namespace velorine {

namespace {

constexpr int maxSliceFrames = 4608;
constexpr int stereoMask = 3;
constexpr std::size_t maxDeviceName = 1024;

/// What a device can take for a format of the chain: no 64-bit float, and 28-bit samples, which are
/// scaled as 24, in full scale.
SampleFormat playable(SampleFormat format) {
    if (format.type == sampleType::float64) format.type = sampleType::float32;
    if (format.type == sampleType::int28) format.type = sampleType::int32;
    format.layout = std::min(format.layout, bitsPerSample(format.type));
    return format;
}

SampleFormat formatForBits(SampleFormat format, int bits) {
    if (bits <= 8)
        format.type = sampleType::int8;
    else if (bits <= 16)
        format.type = sampleType::int16;
    else if (bits <= 24)
        format.type = sampleType::int24;
    else
        format.type = sampleType::int32;
    format.layout = bits;
    return format;
}

} // namespace

FxOutput::FxOutput(const SystemClock& systemClock, FxClock& engine, FxArena& sampleArena,
                   SoundSystem* soundSystem, RecorderFiles& files, std::function<bool()> engineIdle)
    : device(systemClock, soundSystem), recorder(files, std::move(engineIdle)), clock(systemClock),
      engineClock(engine), arena(sampleArena) {
    device.onStart(
        [](void* self) {
            auto& output = *static_cast<FxOutput*>(self);
            output.target.deviceStarts(output.clock.now());
        },
        this);
}

void FxOutput::exchangeSettings(RegistryNode& node) {
    const auto exchange = [&node](const char* name, std::atomic<std::int32_t>& field) {
        std::int32_t value = field.load(std::memory_order_relaxed);
        node.exchangeInt("Output", name, value);
        field.store(value, std::memory_order_relaxed);
    };
    exchange("bits", bits);
    bool shaping = noiseshaping.load(std::memory_order_relaxed);
    node.exchangeBool("Output", "noiseshaping", shaping);
    noiseshaping.store(shaping, std::memory_order_relaxed);
    exchange("recordmode", recorder.recordmode);

    std::string name = device.deviceName();
    node.exchangeString("General", maxDeviceName, "Audio Device", name);
    if (node.mode != RegistryNode::read) return;
    recordSwitch = recordSwitch || recorder.recordmode.load(std::memory_order_relaxed) >= 1;
    device.setDeviceName(name);
}

void FxOutput::start(FxRing& lastRing, bool) {
    chainRing = &lastRing;
    const bool records = recordSwitch && recorder.recordmode.load(std::memory_order_relaxed) >= 1;
    outputMode = records ? 1 : 0;
    recorder.active.store(recordSwitch ? 1 : 0, std::memory_order_relaxed);
    if (recordSwitch) recorder.start();
}

void FxOutput::stopThreads() {
    recorder.stop();
    device.stopThreads();
}

// -- The output step ---------------------------------------------------------------------------

bool FxOutput::service(const Pace& pace) {
    editWaits = false;
    if (pending.active) {
        deliver(pace);
        return true;
    }
    FxBlock slice;
    if (!takeSlice(slice)) return false;

    const SampleFormat wanted = wantedFormat(slice);
    if (outputMode == 0) {
        if (!prepareDevice(playable(wanted), pace)) return !editWaits;
    } else {
        deviceFormat = wanted;
    }
    servicePos += slice.frames();

    const SampleFormat destination = deviceFormat;
    convertSlice(slice, destination);
    {
        const RecursiveLock::Scope guard{deviceRingLock};
        shownFormat = deviceFormat;
        appendTo(deviceRing, slice);
    }
    pending = {std::move(slice), 0, true, false};
    deliver(pace);
    return true;
}

/// Looks at the next slice without taking it. Blocks without frames are passed.
bool FxOutput::takeSlice(FxBlock& slice) {
    for (;;) {
        const int index = indexAt(*chainRing, servicePos, serviceCursor);
        serviceCursor = chainRing->removed() + index;
        if (index == chainRing->count()) return false;
        const FxBlock& block = chainRing->at(index);
        if (block.empty()) {
            ++serviceCursor;
            continue;
        }
        servicePos = std::max(servicePos, block.posStart);
        slice = block;
        slice.first += static_cast<std::int32_t>(servicePos - block.posStart);
        slice.last = std::min(slice.last, slice.first + maxSliceFrames);
        const std::int64_t end = servicePos + slice.frames();
        slice.timeStart = block.timeAt(servicePos);
        slice.timeEnd = block.timeAt(end);
        slice.srcStart = servicePos << 16;
        slice.srcEnd = end << 16;
        return true;
    }
}

SampleFormat FxOutput::wantedFormat(const FxBlock& slice) {
    SampleFormat wanted = slice.format;
    const int wantedBits = bits.load(std::memory_order_relaxed);
    if (wantedBits < 4) {
        SampleFormat host = slice.format;
        engineClock.formatAtTime(slice.timeStart, &host);
        wanted.type = host.type;
        wanted.layout = bitsPerSample(host.type);
    } else {
        wanted = formatForBits(wanted, wantedBits);
    }
    if (isFloatType(wanted.type)) wanted.layout = fullWidth;
    return wanted;
}

/// Has a device open that takes `wanted`. Its own resolution may be higher: a change of bits alone
/// isn't worth a gap.
/// @return false when an edit or the thread's end came first; the slice is then not taken
bool FxOutput::prepareDevice(const SampleFormat& wanted, const Pace& pace) {
    const bool open = device.isOpen();
    const bool fits = deviceFormat.channels == wanted.channels &&
                      deviceFormat.rate == wanted.rate &&
                      bitsPerSample(wanted.type) <= bitsPerSample(deviceFormat.type);
    if (open && fits) {
        if (deviceFormat.type == wanted.type) deviceFormat.layout = wanted.layout;
        return true;
    }
    if (open) {
        const bool insideEdit = !pace.obeyTarget;
        if (insideEdit && queuedFrames() > 0) {
            editWaits = true; // an edit doesn't wait for the old format to play out
            return false;
        }
        if (!playOut(pace)) return false;
        device.stop();
        kernel().sleep(10);
    }
    device.configure(wanted, stereoMask, -1);
    device.open(false);
    deviceFormat = wanted;
    return true;
}

bool FxOutput::playOut(const Pace& pace) {
    const PriorityScope raised{priorityTimeCritical};
    const TimerPeriodScope timer;
    while (queuedFrames() > 0) {
        if (interrupted(pace)) return false;
        outputTail(pace);
        if (device.halted.isSet()) break; // it doesn't start, and what it holds is never heard
        if (waitOrLeave(pace, timer.granted() ? 8 : 1)) return false;
    }
    return true;
}

void FxOutput::convertSlice(FxBlock& slice, const SampleFormat& format) {
    if (formatsEqual(slice.format, format)) return;
    FxBlock converted = slice;
    converted.buffer = {};
    void* const samples = converted.allocate(arena, format, slice.frames());
    converter.noiseShaping = noiseshaping.load(std::memory_order_relaxed);
    converter.convert({slice.data(), slice.frames(), bytesPerFrame(slice.format)}, slice.format,
                      {samples, slice.frames(), bytesPerFrame(format)}, format);
    slice = std::move(converted);
}

// -- Handing over ------------------------------------------------------------------------------

bool FxOutput::interrupted(const Pace& pace) const {
    return (pace.stop && pace.stop->isSet()) || (pace.editRequested && pace.editRequested->isSet());
}

/// Waits `ms`. @return true when an edit or the thread's end came
bool FxOutput::waitOrLeave(const Pace& pace, int ms) {
    if (pace.stop && pace.editRequested)
        return waitForFirst(ms, *pace.stop, *pace.editRequested) != Kernel::timedOut;
    if (pace.stop) return pace.stop->wait(ms);
    kernel().sleep(ms);
    return false;
}

std::int64_t FxOutput::queuedFrames() {
    return outputMode == 0 ? std::max<std::int64_t>(device.writtenEnd() - device.position(), 0) : 0;
}

void FxOutput::deliver(const Pace& pace) {
    const int frameBytes = bytesPerFrame(pending.block.format);
    if (outputMode == 0 && !pending.paced) {
        const int n = pending.block.frames() - pending.offset;
        const std::int64_t queuedMs = (n + queuedFrames()) * 1000 / std::max(rate(), 1);
        target.noteBuffered(clock.now(), queuedMs);
        if (pace.obeyTarget && !waitForTarget(pace, n)) return;
        pending.paced = pace.obeyTarget;
    }
    while (pending.offset < pending.block.frames()) {
        int piece = pending.block.frames() - pending.offset;
        if (outputMode == 0) {
            piece = std::min(piece, std::max(static_cast<int>(chunkFrames(rate())), 1));
            if (!waitForRoom(pace, piece)) return;
        } // a file takes all at once: what stands in the device ring is in it
        write(pending.block.data() + static_cast<std::ptrdiff_t>(pending.offset) * frameBytes,
              piece);
        pending.offset += piece;
    }
    pending = {};
}

/// Waits once if more is queued than wanted. The pump's lock is free between two waits, so that
/// nobody stands behind a device that plays slowly or not at all.
/// @return whether the slice may be handed over now
bool FxOutput::waitForTarget(const Pace& pace, int frames) {
    if (interrupted(pace)) return false;
    if (!device.running.isSet()) return true;
    const std::int64_t limit = device.bufferFrames() - guardFrames(rate());
    const std::int64_t wanted = std::min<std::int64_t>(frames, chunkFrames(rate()));
    const std::int64_t queued = queuedFrames();
    const std::int64_t depth = target.frames(clock.now(), rate());
    const std::int64_t excess = std::max(queued - depth, wanted - (limit - queued));
    if (excess <= 0) return true;
    const int ms = pacingWaitMs(excess, rate());
    if (ms < 2) return true;
    waitOrLeave(pace, ms);
    return false;
}

/// Waits once if the buffer doesn't take `piece` frames.
/// @return whether it takes them now
bool FxOutput::waitForRoom(const Pace& pace, int piece) {
    if (interrupted(pace)) return false;
    const std::int64_t limit = device.bufferFrames() - guardFrames(rate());
    const std::int64_t missing = piece - (limit - queuedFrames());
    if (missing <= 0) return true;
    const bool runs = device.running.isSet();
    if (!runs && !pace.obeyTarget) {
        editWaits = true; // it can't be started, and an edit doesn't wait until it can
        return false;
    }
    int ms = pacingWaitMs(missing, rate());
    if (ms < 2) return true;
    if (ms < 10 || !runs) ms = 10;
    waitOrLeave(pace, ms);
    return false;
}

void FxOutput::write(const std::byte* samples, int frames) {
    if (recordSwitch) record(samples, frames);
    if (outputMode != 0) return;

    if (device.write(samples, frames) == DeviceController::WriteResult::refused) {
        device.restore();
        if (device.write(samples, frames) == DeviceController::WriteResult::refused)
            device.skip(frames);
    }
    device.startIfReady();
}

void FxOutput::record(const std::byte* samples, int frames) {
    const SampleFormat& format = pending.block.format;
    recorder.streamFormat = format.type;
    recorder.streamChannels = format.channels;
    recorder.streamRate = format.rate;
    recorder.write(samples, static_cast<std::size_t>(frames) *
                                static_cast<std::size_t>(bytesPerFrame(format)));
}

void FxOutput::outputTail(const Pace& pace) {
    if (pending.active) deliver(pace);
    if (outputMode != 0) return;
    device.drainSoon();
    device.startIfReady();
}

void FxOutput::playWhatIsQueued() {
    if (outputMode != 0 || !device.isOpen()) return;
    if (device.halted.isSet() && device.writtenEnd() > device.position()) device.start();
    if (device.running.isSet()) device.drainSoon();
}

// -- Positions ---------------------------------------------------------------------------------

std::int64_t FxOutput::rewindTo(std::int64_t wanted) {
    const std::int64_t written = writtenEnd();
    std::int64_t end = std::min(wanted, written);
    if (outputMode == 0) {
        end = device.rewindTo(end);
        if (recordSwitch && written > end) recorder.rewind(written - end);
    } else {
        end = written;
    }
    {
        const RecursiveLock::Scope guard{deviceRingLock};
        deviceRing.truncate(end);
    }
    servicePos = end;
    pending = {};
    return end;
}

void FxOutput::trim(std::int64_t playedFrame) {
    const RecursiveLock::Scope guard{deviceRingLock};
    while (deviceRing.count() > 2 && deviceRing.oldest().posEnd <= playedFrame)
        deviceRing.pop();
}

std::int64_t FxOutput::position() {
    if (outputMode == 0) return device.position();
    const RecursiveLock::Scope guard{deviceRingLock};
    return deviceRing.end();
}

std::int64_t FxOutput::writtenEnd() {
    if (outputMode == 0) return device.writtenEnd();
    const RecursiveLock::Scope guard{deviceRingLock};
    return deviceRing.end();
}

std::int64_t FxOutput::bufferedMs() {
    return queuedFrames() * 1000 / std::max(rate(), 1);
}

FxTime FxOutput::played() {
    const std::int64_t frame = position();
    const RecursiveLock::Scope guard{deviceRingLock};
    if (deviceRing.empty()) return lastReportedTime;
    lastReportedTime = std::max(lastReportedTime, frameToTime(deviceRing, frame, searchCursor));
    return lastReportedTime;
}

FxTime FxOutput::timeAt(std::int64_t pos) {
    const RecursiveLock::Scope guard{deviceRingLock};
    return timeAtFrame(deviceRing, pos);
}

void FxOutput::checkInvariants() {
#ifndef NDEBUG
    const std::int64_t written = writtenEnd();
    const RecursiveLock::Scope guard{deviceRingLock};
    assert(deviceRing.end() == servicePos || deviceRing.empty());
    assert(!chainRing || servicePos <= chainRing->end());
    assert(written <= deviceRing.end());
#endif
}

SampleFormat FxOutput::openedFormat() const {
    const RecursiveLock::Scope guard{deviceRingLock};
    return shownFormat;
}

} // namespace velorine
