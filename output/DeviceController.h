#pragma once

#include "foundation/FlaggedEvent.h"
#include "foundation/RWLock.h"
#include "foundation/RecursiveLock.h"
#include "foundation/SampleFormat.h"
#include "foundation/SystemClock.h"
#include "output/DeviceCommandThread.h"
#include "output/DeviceFeedThread.h"
#include "output/OutputDevice.h"
#include "output/PositionTracker.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace velorine {

/// The playing end of the system: the device, its looping buffer, and the stream position in it.
///
/// Positions are frames on the device axis, which counts every frame handed over since the engine
/// was made and goes on across devices and formats. All operations may be called from any thread,
/// none with one of the device's locks held. Nothing runs before the first `open`.
class DeviceController {
public:
    enum class WriteResult { written, refused };

    /// @param soundSystem  null: only the null target is there
    DeviceController(const SystemClock& systemClock, SoundSystem* soundSystem);
    ~DeviceController();
    DeviceController(const DeviceController&) = delete;
    DeviceController& operator=(const DeviceController&) = delete;

    // -- The device ----------------------------------------------------------------------------

    /// Takes the format of the stream that follows; a device open in another one is closed.
    void configure(const SampleFormat& format, int channelMask, int extra);

    /// Opens the device in the configured format; `force` closes the platform's connection too.
    void open(bool force);

    /// Starts the device if it stands. The answer is whether it runs.
    bool start();

    /// Gets a lost buffer back. @return whether it came
    bool restore();

    /// Stops the device, drops what is queued and clears the buffer. The driver's stop: the stream
    /// isn't playing any more. The dropped frames count as played.
    void stop();

    /// Gives the device back.
    void close();

    bool isOpen() const;
    bool isNullTarget() const;
    bool isFallback() const noexcept { return fallback.load(std::memory_order_relaxed); }

    /// Nothing is heard: the null target plays, or a device that is away for a while.
    bool isSilent() const;
    std::string openedDeviceName() const;

    /// Device by its description; "None" and "Disable" stand for the null target, empty for the
    /// default device. Takes effect at the next open.
    void setDeviceName(const std::string& name);
    std::string deviceName() const;

    /// Linear gain of 0 to 1 and pan of -1 to 1, applied at once and at each start.
    void setVolume(double volume);
    void setPan(double pan);

    // -- Writing -------------------------------------------------------------------------------

    /// Hands `frames` frames over, at the end of what was written. More than the free part of the
    /// buffer must not be given. Refused when the platform doesn't let the buffer be locked.
    WriteResult write(const void* samples, int frames);

    /// Counts `frames` as written although the buffer could not be had.
    void skip(int frames);

    /// Takes written frames back, so that the stream ends at `position` and goes on there; not
    /// those that were played or can no longer be replaced. Returns where the stream ends now.
    std::int64_t rewindTo(std::int64_t position);

    /// No more audio follows for now: what is queued may be started, little as it may be.
    void drainSoon();

    /// Starts a halted device once enough is queued.
    void startIfReady();

    // -- Position ------------------------------------------------------------------------------

    std::int64_t position();         ///< playing now; monotonic, never behind what was written
    std::int64_t writtenEnd() const; ///< frames handed over
    int bufferFrames() const noexcept { return bufferLength.load(std::memory_order_relaxed); }
    int rate() const noexcept { return streamRate.load(std::memory_order_relaxed); } ///< Hz
    double driftRatio() const;

    FlaggedEvent running; ///< the device plays; never set together with the other
    FlaggedEvent halted;  ///< the device stands

    /// Called with the device running, after each start.
    void onStart(void (*callback)(void*), void* context);

    // -- For the device's own threads ----------------------------------------------------------

    bool runCommand(DeviceCommandThread::Command command);

    /// One pass of the feed thread. @return ms until the next, or `Kernel::forever`
    int feedPass();

    /// Lets the feed thread look at once, and start if it hasn't.
    void wakeFeed();

    /// Ends both threads.
    void stopThreads();

private:
    void openCommand();
    bool startCommand();
    bool restoreCommand();
    void applyVolume();
    void stopLocked(std::int64_t playedEnd);
    void fillSilence(int startFrame, std::int64_t frames);
    void pad(std::int64_t position);
    void setRunning(bool runs);
    SoundSystem::Format platformFormat() const;

    const SystemClock& clock;
    OutputDevice deviceA;
    OutputDevice deviceB;

    mutable RWLock deviceLock{LockRank::device};
    OutputDevice* current = &deviceA; ///< guarded by deviceLock; what everybody works with
    OutputDevice* spare = &deviceB;   ///< the command thread's while it opens

    RecursiveLock bufferLock{LockRank::buffer};
    int dataCursor = 0;         ///< guarded by bufferLock: where audio is written next
    int padCursor = 0;          ///< guarded by bufferLock: where silence is written next
    std::int64_t paddedEnd = 0; ///< guarded by bufferLock: end of audio and silence

    mutable RecursiveLock positionLock{LockRank::position};
    std::int64_t written = 0; ///< changed under bufferLock and positionLock, read under either
    PositionTracker tracker;  ///< guarded by positionLock

    mutable RecursiveLock streamLock{LockRank::stream};
    SampleFormat format;        ///< of the stream; guarded by streamLock, as the rest
    int channelMask = 3;        ///< speakers
    int extraMask = -1;         ///< stored beside the mask, for nobody
    bool streamPlaying = false; ///< from the first write after an open to the driver's stop
    bool draining = false;      ///< no more audio follows for now
    std::string wantedDevice;
    std::string deviceGuidText;
    std::string openedDevice;
    bool reopenFully = false; ///< close the platform's connection as well when opening
    double volumeGain = 1.0;
    double panPosition = 0.0;
    void (*startCallback)(void*) = nullptr;
    void* startContext = nullptr;

    std::atomic<bool> fallback{false};  ///< the open ended on the null target; for a display
    std::atomic<int> bufferLength{0};   ///< frames; changes with the format, while the pump holds
    std::atomic<int> streamRate{48000}; ///< Hz; likewise

    DeviceCommandThread commandThread{*this};
    DeviceFeedThread feedThread{*this};
};

} // namespace velorine
