#include "output/OutputDevice.h"

#include "foundation/PriorityScope.h"
#include "foundation/Rounding.h"

#include <algorithm>
#include <cmath>

namespace velorine {

namespace {
constexpr int silentAttenuation = -10000;
}

int attenuationFor(double gain) {
    if (!(gain > 0.0)) return silentAttenuation;
    const std::int64_t rounded = roundToEven(2000.0 * std::log10(std::min(gain, 1.0)));
    return static_cast<int>(std::clamp<std::int64_t>(rounded, silentAttenuation, 0));
}

int panAttenuationFor(double pan) {
    const int value = attenuationFor(std::clamp(1.0 - std::fabs(pan), 0.0, 1.0));
    return pan > 0.0 ? -value : value;
}

bool OutputDevice::selectDevice(std::string& deviceName, std::string& deviceGuid) {
    const PriorityScope raised{PriorityScope::atLeast(1)};
    return sound->connect(deviceName, deviceGuid);
}

void OutputDevice::openBuffer(const SoundSystem::Format& wanted, std::string& deviceName,
                              std::string& deviceGuid) {
    close(false);
    if (sound && wanted.channels > 0) {
        for (int attempt = 0; attempt < 2 && !buffer; ++attempt) {
            if (attempt > 0) sound->disconnect(); // what was connected may have gone away
            if (!selectDevice(deviceName, deviceGuid)) {
                sound->disconnect();
                continue;
            }
            buffer = sound->createBuffer(wanted);
        }
    }
    openedFormat = wanted;
    bufferFrames = wanted.bufferFrames;
    if (!buffer) openNull(wanted.rate, wanted.bufferFrames);
}

void OutputDevice::openNull(int rate, int frames) {
    close(false);
    const RecursiveLock::Scope guard{lock};
    isNull = true;
    bufferFrames = frames;
    nullRate = rate;
    nullClockStart = 0;
    nullPosition = 0;
    nullPlaying = false;
}

void OutputDevice::close(bool disconnectToo) {
    unlockRegion();
    if (buffer) {
        buffer->setVolume(silentAttenuation);
        buffer->stop();
        buffer.reset();
    }
    isNull = false;
    if (disconnectToo && sound) sound->disconnect();
}

int OutputDevice::nullElapsed(FxTime now) const {
    const std::int64_t elapsed = std::max<FxTime>(now - nullClockStart, 0);
    // Divided in two steps, so that days of playing stay within 64 bits.
    const std::int64_t frames = elapsed / 100 * nullRate / 100'000;
    return static_cast<int>((nullPosition + frames) % bufferFrames);
}

SoundBuffer::Result OutputDevice::play() {
    if (buffer) return buffer->play();
    if (!isNull) return SoundBuffer::Result::failed;
    const RecursiveLock::Scope guard{lock};
    if (!nullPlaying) {
        nullPlaying = true;
        nullClockStart = clock.now();
    }
    return SoundBuffer::Result::ok;
}

void OutputDevice::stop() {
    if (buffer) return buffer->stop();
    const RecursiveLock::Scope guard{lock};
    if (!isNull || !nullPlaying) return;
    const FxTime now = clock.now();
    nullPosition = static_cast<std::uint32_t>(nullElapsed(now));
    nullPlaying = false;
    nullClockStart = now;
}

void OutputDevice::setPosition(int frame) {
    if (buffer) return buffer->setPosition(frame);
    const RecursiveLock::Scope guard{lock};
    nullPosition = static_cast<std::uint32_t>(frame);
    nullClockStart = clock.now();
}

int OutputDevice::position() {
    if (buffer) {
        int frame = 0;
        if (!buffer->playCursor(frame)) return 0;
        return std::clamp(frame, 0, bufferFrames - 1);
    }
    const RecursiveLock::Scope guard{lock};
    if (!isNull || bufferFrames <= 0) return 0;
    if (nullPlaying) return nullElapsed(clock.now());
    return static_cast<int>(nullPosition) % bufferFrames;
}

void OutputDevice::setVolume(int hundredthsDb) {
    if (buffer) buffer->setVolume(hundredthsDb);
}

void OutputDevice::setPan(int hundredthsDb) {
    if (buffer) buffer->setPan(hundredthsDb);
}

bool OutputDevice::restore() {
    return buffer ? buffer->restore() : isNull;
}

SoundBuffer::Result OutputDevice::lockRegion(int startFrame, int frames) {
    unlockRegion();
    lockedRegions = {};
    if (!buffer) return isNull ? SoundBuffer::Result::ok : SoundBuffer::Result::failed;
    const SoundBuffer::Result result = buffer->lock(startFrame, frames, lockedRegions);
    regionsHeld = result == SoundBuffer::Result::ok;
    if (!regionsHeld) lockedRegions = {};
    return result;
}

void OutputDevice::unlockRegion() {
    if (!regionsHeld) return;
    regionsHeld = false;
    buffer->unlock(lockedRegions);
    lockedRegions = {};
}

} // namespace velorine
