#include "output/DeviceController.h"

#include "foundation/CycleClock.h"
#include "foundation/Rounding.h"

#include <algorithm>
#include <cstring>

namespace velorine {

namespace {

constexpr int silentAttenuation = -10000;
constexpr int highestRate = 1'536'000; ///< Hz; a host may ask for anything

bool isNullName(const std::string& name) {
    return name == "Disable" || name == "None";
}

/// Container of a sample type on the device: 28 bits take 32.
int containerBits(int type) {
    return bytesPerSample(type) * 8;
}

/// Platforms take a mono or stereo stream without a mask; other layouts have no fixed speakers.
int maskFor(int channels, int mask) {
    if (channels == 1) return 4;
    if (channels == 2) return mask;
    return 0;
}

} // namespace

DeviceController::DeviceController(const SystemClock& systemClock, SoundSystem* soundSystem)
    : clock(systemClock), deviceA(systemClock, soundSystem), deviceB(systemClock, soundSystem) {
    halted.set();
}

DeviceController::~DeviceController() {
    stopThreads();
}

void DeviceController::stopThreads() {
    feedThread.join();
    commandThread.join();
}

// -- The device --------------------------------------------------------------------------------

void DeviceController::configure(const SampleFormat& wanted, int mask, int extra) {
    const RWLock::WriteScope device{deviceLock};
    const RecursiveLock::Scope buffer{bufferLock};
    const RecursiveLock::Scope positions{positionLock};
    const RecursiveLock::Scope stream{streamLock};

    current->setVolume(silentAttenuation); // nothing of the old stream may come through
    if (current->isOpen() && !formatsEqual(format, wanted)) {
        stopLocked(written);
        current->close(false);
    }
    format = wanted;
    channelMask = mask;
    extraMask = extra;
    const int playableRate = std::clamp(wanted.rate, 1, highestRate);
    bufferLength.store(2 * playableRate + 2560, std::memory_order_relaxed);
    streamRate.store(playableRate, std::memory_order_relaxed);
    streamPlaying = false;
    dataCursor = padCursor = 0;
    paddedEnd = written;
    tracker.place(written, 0);
    tracker.raisePublished(written);
}

void DeviceController::open(bool force) {
    {
        const RecursiveLock::Scope stream{streamLock};
        reopenFully = reopenFully || force;
    }
    commandThread.post(DeviceCommandThread::Command::open);
}

bool DeviceController::start() {
    return commandThread.post(DeviceCommandThread::Command::start);
}

bool DeviceController::restore() {
    return commandThread.post(DeviceCommandThread::Command::restore);
}

bool DeviceController::runCommand(DeviceCommandThread::Command command) {
    switch (command) {
    case DeviceCommandThread::Command::open:
        openCommand();
        return isOpen();
    case DeviceCommandThread::Command::start:
        return startCommand();
    case DeviceCommandThread::Command::restore:
        return restoreCommand();
    case DeviceCommandThread::Command::none:
        break;
    }
    return false;
}

SoundSystem::Format DeviceController::platformFormat() const {
    const RecursiveLock::Scope stream{streamLock};
    SoundSystem::Format wanted;
    wanted.formatTag = format.type == sampleType::float32 ? 3 : 1;
    wanted.channels = format.channels;
    wanted.rate = rate();
    wanted.containerBits = containerBits(format.type);
    wanted.validBits = std::min(format.layout, wanted.containerBits);
    wanted.channelMask = maskFor(format.channels, channelMask);
    wanted.bufferFrames = bufferFrames();
    return wanted;
}

void DeviceController::openCommand() {
    std::string name;
    std::string guid;
    bool full = false;
    {
        // The feed thread sees the empty holder from here on, and no lock is held across the calls
        // of the platform.
        const RWLock::WriteScope device{deviceLock};
        const RecursiveLock::Scope positions{positionLock};
        const RecursiveLock::Scope stream{streamLock};
        std::swap(current, spare);
        setRunning(false);
        tracker.forgetDrift();
        name = wantedDevice;
        guid = deviceGuidText;
        full = reopenFully;
    }

    OutputDevice& opened = *spare;
    opened.close(full);
    const SoundSystem::Format wanted = platformFormat();
    bool endsOnNull = false;
    if (isNullName(name)) {
        opened.openNull(wanted.rate, wanted.bufferFrames);
        endsOnNull = true;
    } else {
        opened.openBuffer(wanted, name, guid);
        endsOnNull = opened.isNullTarget();
    }

    const RWLock::WriteScope device{deviceLock};
    const RecursiveLock::Scope buffer{bufferLock};
    const RecursiveLock::Scope positions{positionLock};
    const RecursiveLock::Scope stream{streamLock};
    std::swap(current, spare);
    fallback.store(endsOnNull, std::memory_order_relaxed);
    openedDevice = current->isNullTarget() ? "None" : name;
    reopenFully = false;

    const int preroll = wanted.rate / 20; // played as silence while the first audio arrives
    dataCursor = padCursor = preroll;
    paddedEnd = written;
    tracker.place(written, preroll);
    tracker.raisePublished(written); // what the old buffer held will not be heard
    streamPlaying = false;
    if (!current->isOpen()) return;

    applyVolume();
    fillSilence(0, current->frames());
    current->setPosition(preroll);
}

bool DeviceController::startCommand() {
    void (*callback)(void*) = nullptr;
    void* context = nullptr;
    {
        const RWLock::ReadScope device{deviceLock};
        const RecursiveLock::Scope buffer{bufferLock};
        const RecursiveLock::Scope positions{positionLock};
        if (running.isSet()) return true;
        if (!current->isOpen()) return false;
        if (written <= tracker.played()) return false; // dropped since the start was asked for
        const RecursiveLock::Scope stream{streamLock};
        applyVolume();
        if (current->play() != SoundBuffer::Result::ok) {
            tracker.forgetDrift();
            setRunning(false);
            return false;
        }
        tracker.begin(clock.now());
        setRunning(true);
        callback = startCallback;
        context = startContext;
    }
    if (callback) callback(context);
    feedThread.enable();
    CycleClock::instance().calibrate(clock);
    return true;
}

bool DeviceController::restoreCommand() {
    const RWLock::ReadScope device{deviceLock};
    const RecursiveLock::Scope buffer{bufferLock};
    return current->restore();
}

void DeviceController::onStart(void (*callback)(void*), void* context) {
    const RecursiveLock::Scope stream{streamLock};
    startCallback = callback;
    startContext = context;
}

void DeviceController::setRunning(bool runs) {
    // For a moment neither is set, and who waits for one waits on. With both set a thread that
    // follows the device would find it changed again and again.
    (runs ? halted : running).reset();
    (runs ? running : halted).set();
}

void DeviceController::stop() {
    const RWLock::ReadScope device{deviceLock};
    const RecursiveLock::Scope buffer{bufferLock};
    const RecursiveLock::Scope positions{positionLock};
    if (current->isOpen()) stopLocked(written);
    const RecursiveLock::Scope stream{streamLock};
    streamPlaying = false;
}

/// The device stands at `playedEnd`, its buffer silent and its cursor at the start.
void DeviceController::stopLocked(std::int64_t playedEnd) {
    tracker.forgetDrift();
    current->unlockRegion();
    current->setVolume(silentAttenuation);
    current->stop();
    setRunning(false);
    tracker.place(playedEnd, 0);
    tracker.raisePublished(playedEnd);
    paddedEnd = playedEnd;
    fillSilence(0, current->frames());
    current->setPosition(0);
    dataCursor = padCursor = 0;
}

void DeviceController::close() {
    const RWLock::WriteScope device{deviceLock};
    const RecursiveLock::Scope buffer{bufferLock};
    const RecursiveLock::Scope positions{positionLock};
    const RecursiveLock::Scope stream{streamLock};
    if (current->isOpen()) stopLocked(written);
    current->close(true);
    streamPlaying = false;
    openedDevice.clear();
}

bool DeviceController::isOpen() const {
    const RWLock::ReadScope device{deviceLock};
    return current->isOpen();
}

bool DeviceController::isNullTarget() const {
    const RWLock::ReadScope device{deviceLock};
    return current->isNullTarget();
}

bool DeviceController::isSilent() const {
    const RWLock::ReadScope device{deviceLock};
    return current->isSilent();
}

std::string DeviceController::openedDeviceName() const {
    const RecursiveLock::Scope stream{streamLock};
    return openedDevice;
}

void DeviceController::setDeviceName(const std::string& name) {
    const RecursiveLock::Scope stream{streamLock};
    wantedDevice = name;
    deviceGuidText.clear();
}

std::string DeviceController::deviceName() const {
    const RecursiveLock::Scope stream{streamLock};
    return wantedDevice;
}

void DeviceController::setVolume(double volume) {
    const RWLock::ReadScope device{deviceLock};
    const RecursiveLock::Scope buffer{bufferLock};
    const RecursiveLock::Scope stream{streamLock};
    volumeGain = volume;
    applyVolume();
}

void DeviceController::setPan(double pan) {
    const RWLock::ReadScope device{deviceLock};
    const RecursiveLock::Scope buffer{bufferLock};
    const RecursiveLock::Scope stream{streamLock};
    panPosition = pan;
    applyVolume();
}

void DeviceController::applyVolume() {
    current->setVolume(attenuationFor(volumeGain));
    current->setPan(panAttenuationFor(panPosition));
}

// -- Writing -----------------------------------------------------------------------------------

DeviceController::WriteResult DeviceController::write(const void* samples, int frames) {
    if (frames <= 0) return WriteResult::written;
    const RWLock::ReadScope device{deviceLock};
    const RecursiveLock::Scope buffer{bufferLock};
    if (current->lockRegion(dataCursor, frames) != SoundBuffer::Result::ok)
        return WriteResult::refused;

    const SoundBuffer::Regions& regions = current->regions();
    const std::size_t frameBytes = static_cast<std::size_t>(current->format().blockAlign());
    const std::size_t firstBytes = static_cast<std::size_t>(regions.firstFrames) * frameBytes;
    const auto* const from = static_cast<const std::byte*>(samples);
    if (regions.first) std::memcpy(regions.first, from, firstBytes);
    if (regions.second)
        std::memcpy(regions.second, from + firstBytes,
                    static_cast<std::size_t>(regions.secondFrames) * frameBytes);
    current->unlockRegion();
    skip(frames);
    return WriteResult::written;
}

void DeviceController::skip(int frames) {
    const RecursiveLock::Scope buffer{bufferLock};
    const RecursiveLock::Scope positions{positionLock};
    dataCursor = (dataCursor + frames) % std::max(bufferFrames(), 1);
    written += frames;
    if (paddedEnd < written) {
        paddedEnd = written;
        padCursor = dataCursor;
    }
    const RecursiveLock::Scope stream{streamLock};
    streamPlaying = true;
    draining = false;
}

std::int64_t DeviceController::rewindTo(std::int64_t target) {
    std::int64_t end = 0;
    {
        const RWLock::ReadScope device{deviceLock};
        const RecursiveLock::Scope buffer{bufferLock};
        const RecursiveLock::Scope positions{positionLock};
        std::int64_t firm = tracker.published();
        if (running.isSet()) {
            const FxTime now = clock.now();
            const std::int64_t passed =
                tracker.cursorPosition(current->position(), now, rate(), bufferFrames());
            // What follows would be written behind the cursor of a device that has run dry.
            if (passed >= written) stopLocked(written);
            // What the cursor has passed, or nearly, can't be replaced.
            firm = std::max(tracker.publish(now, written, rate()), passed) + current->firmFrames();
        }
        end = std::min(std::max(target, firm), written);

        const std::int64_t length = std::max(bufferFrames(), 1);
        const std::int64_t taken = written - end;
        written = paddedEnd = end;
        dataCursor = padCursor =
            static_cast<int>(((dataCursor - taken) % length + length) % length);
        if (running.isSet()) pad(firm); // what was written behind the new end must not be heard
        const RecursiveLock::Scope stream{streamLock};
        draining = false;
    }
    wakeFeed();
    return end;
}

void DeviceController::drainSoon() {
    {
        const RecursiveLock::Scope stream{streamLock};
        draining = true;
    }
    wakeFeed();
}

void DeviceController::startIfReady() {
    {
        const RecursiveLock::Scope positions{positionLock};
        const RecursiveLock::Scope stream{streamLock};
        if (!halted.isSet() || !streamPlaying) return;
        const bool atOnce = draining || format.channels <= 0;
        if (written - tracker.played() < (atOnce ? 1 : preloadFrames(rate()))) return;
    }
    start();
}

void DeviceController::fillSilence(int startFrame, std::int64_t frames) {
    const int count = static_cast<int>(std::min<std::int64_t>(frames, current->frames()));
    if (current->lockRegion(startFrame, count) != SoundBuffer::Result::ok) return;
    const SoundBuffer::Regions& regions = current->regions();
    const std::size_t frameBytes = static_cast<std::size_t>(current->format().blockAlign());
    const int silence = current->format().containerBits == 8 ? 0x80 : 0;
    if (regions.first)
        std::memset(regions.first, silence,
                    static_cast<std::size_t>(regions.firstFrames) * frameBytes);
    if (regions.second)
        std::memset(regions.second, silence,
                    static_cast<std::size_t>(regions.secondFrames) * frameBytes);
    current->unlockRegion();
}

// -- Position ----------------------------------------------------------------------------------

std::int64_t DeviceController::position() {
    const RecursiveLock::Scope positions{positionLock};
    if (!running.isSet()) return tracker.published();
    return tracker.publish(clock.now(), written, rate());
}

std::int64_t DeviceController::writtenEnd() const {
    const RecursiveLock::Scope positions{positionLock};
    return written;
}

double DeviceController::driftRatio() const {
    const RecursiveLock::Scope positions{positionLock};
    return tracker.drift();
}

int DeviceController::feedPass() {
    const RWLock::ReadScope device{deviceLock};
    if (!current->isOpen()) return Kernel::forever;

    const RecursiveLock::Scope buffer{bufferLock};
    const RecursiveLock::Scope positions{positionLock};
    bool playing = false;
    {
        const RecursiveLock::Scope stream{streamLock};
        playing = streamPlaying;
    }
    const FxTime now = clock.now();
    const int deviceRate = rate();

    // Behind the written end the position runs on here, unlike the one that is published: only so
    // an under-run shows.
    std::int64_t here = 0;
    if (!playing) {
        here = tracker.played();
    } else if (halted.isSet()) {
        here = std::min(std::max(tracker.played(), tracker.floor()), written);
        tracker.raisePublished(here);
    } else {
        if (tracker.needsCursor(now, written, deviceRate))
            tracker.takeCursor(current->position(), now, written, deviceRate, bufferFrames());
        here = tracker.estimate(now, deviceRate);
        tracker.publish(now, written, deviceRate);
    }

    const std::int64_t margin = roundToEven(-deviceRate * 0.1);
    if (here + margin > written && running.isSet()) {
        stopLocked(written); // an under-run: playing goes on here once enough has arrived
        return feedWaitMs(0, deviceRate);
    }
    pad(here);
    return feedWaitMs(written - here, deviceRate);
}

void DeviceController::pad(std::int64_t here) {
    const std::int64_t needed = paddingNeeded(written - here, paddedEnd - written, rate());
    if (needed <= 0) return;
    if (needed > smallestWrittenPadding(rate())) fillSilence(padCursor, needed);
    padCursor = static_cast<int>((padCursor + needed) % std::max(bufferFrames(), 1));
    paddedEnd += needed;
}

void DeviceController::wakeFeed() {
    feedThread.wake();
}

} // namespace velorine
