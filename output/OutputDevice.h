#pragma once

#include "foundation/FxTime.h"
#include "foundation/RecursiveLock.h"
#include "foundation/SystemClock.h"
#include "output/SoundSystem.h"

#include <cstdint>
#include <memory>
#include <string>

namespace velorine {

/// Hundredths of a decibel for a linear gain: -10000 to 0. Gains above 1 count as 1.
int attenuationFor(double gain);

/// Hundredths of a decibel for a pan of -1 (left) to 1 (right): -10000 to 10000, above 0 by how
/// much the left channel is lowered, below 0 the right one.
int panAttenuationFor(double pan);

/// Where the samples go: a buffer of the sound system, or the null target, which plays nothing and
/// counts frames against the clock. All lengths are frames.
class OutputDevice {
public:
    OutputDevice(const SystemClock& systemClock, SoundSystem* soundSystem)
        : clock(systemClock), sound(soundSystem) {}

    /// Opens a buffer, or the null target where none is to be had: without a sound system, without
    /// channels, or when the device refuses twice. Never fails.
    void openBuffer(const SoundSystem::Format& wanted, std::string& deviceName,
                    std::string& deviceGuid);
    void openNull(int rate, int frames);

    /// Gives the buffer back; the connection to the sound system stays unless `disconnectToo`.
    void close(bool disconnectToo);

    bool isOpen() const noexcept { return buffer != nullptr || isNull; }
    bool isNullTarget() const noexcept { return isNull; }

    SoundBuffer::Result play();
    void stop();
    void setPosition(int frame);

    /// Play cursor, below `frames()`; 0 when it can't be read.
    int position();
    void setVolume(int hundredthsDb);
    void setPan(int hundredthsDb);
    bool restore();
    int firmFrames() { return buffer ? buffer->firmFrames() : 0; }

    /// The null target, or a buffer that is away.
    bool isSilent() { return isNull || (buffer && buffer->away()); }

    /// Locks `frames` frames from `startFrame` on, for `regions` to be written. The null target
    /// yields no regions and succeeds.
    SoundBuffer::Result lockRegion(int startFrame, int frames);
    void unlockRegion();
    const SoundBuffer::Regions& regions() const noexcept { return lockedRegions; }

    int frames() const noexcept { return bufferFrames; }
    const SoundSystem::Format& format() const noexcept { return openedFormat; }

private:
    bool selectDevice(std::string& deviceName, std::string& deviceGuid);
    int nullElapsed(FxTime now) const;

    const SystemClock& clock;
    SoundSystem* const sound; ///< null: there is none
    std::unique_ptr<SoundBuffer> buffer;
    bool isNull = false;
    bool nullPlaying = false; ///< guarded by lock, as the rest of the null state
    FxTime nullClockStart = 0;
    std::int32_t nullRate = 48000; ///< Hz
    std::uint32_t nullPosition = 0;
    SoundSystem::Format openedFormat;
    SoundBuffer::Regions lockedRegions;
    bool regionsHeld = false;
    std::int32_t bufferFrames = 0;
    mutable RecursiveLock lock{LockRank::leaf};
};

} // namespace velorine
