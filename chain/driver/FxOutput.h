#pragma once

#include "chain/driver/BufferTarget.h"
#include "foundation/FlaggedEvent.h"
#include "foundation/FxRing.h"
#include "foundation/RecursiveLock.h"
#include "foundation/SystemClock.h"
#include "output/DeviceController.h"
#include "output/WavRecorder.h"
#include "stages/convert/SampleConverter.h"

#include <atomic>
#include <cstdint>
#include <functional>

namespace velorine {

class FxClock;
class RegistryNode;

/// The output side: takes what the chain has finished, converts it, and plays or records it.
///
/// What is handed over also stands in the device ring until it is played, which is how a position
/// of the device becomes a time of the stream. The last chain ring, the device ring and the device
/// count frames on one axis.
class FxOutput {
public:
    /// What a wait of the output step obeys.
    struct Pace {
        FlaggedEvent* stop = nullptr;          ///< ends every wait
        FlaggedEvent* editRequested = nullptr; ///< likewise; null inside an edit
        bool obeyTarget = true; ///< false inside an edit: only the buffer's end counts
    };

    FxOutput(const SystemClock& systemClock, FxClock& engine, FxArena& sampleArena,
             SoundSystem* soundSystem, RecorderFiles& files, std::function<bool()> engineIdle);

    /// Loads or saves the output's settings. Host's main thread, or inside an edit.
    void exchangeSettings(RegistryNode& node);

    /// Takes the mode from the settings and lets the recorder run. `lastRing` is the ring of the
    /// last stage, `showOutput` makes no difference here.
    void start(FxRing& lastRing, bool showOutput);

    /// Ends the output's threads. Nothing is delivered afterwards.
    void stopThreads();

    /// Takes one slice of the last ring and hands over what the device takes of it, or goes on with
    /// one that is begun. Waits 50 ms at most, or until a format that is open has played out. Pump
    /// lock held.
    /// @return false: there is nothing new to take
    bool service(const Pace& pace);

    /// Goes on with a slice that is begun, as `service`, and lets the device play what is queued.
    /// Pump lock held.
    void outputTail(const Pace& pace);

    /// Starts the device if it stands while something is queued, and lets it drain.
    void playWhatIsQueued();

    /// The last ring was cut at `ringEnd`; takes back what lies behind `target` as far as the
    /// device lets it, and drops what was not handed over. Pump lock held.
    /// @return the frame at which the output ends now, `target` or above
    std::int64_t rewindTo(std::int64_t target);

    /// Drops blocks of the device ring that end at or before `played`, all but two. Pump lock held.
    void trim(std::int64_t played);

    std::int64_t position();         ///< frame that plays now
    std::int64_t writtenEnd();       ///< frames handed over
    std::int64_t queuedFrames();     ///< in the device; 0 without one
    std::int64_t bufferedMs();       ///< the same, in whole ms
    FxTime played();                 ///< stream time at the speakers; never goes back. Any thread.
    FxTime timeAt(std::int64_t pos); ///< stream time at a frame of the device axis. Any thread.
    int rate() const { return device.rate(); } ///< Hz

    /// The last `service` left something for the end of the edit: a format that has to play out, or
    /// a full device that doesn't start. Pump lock held.
    bool waitsForEdit() const noexcept { return editWaits; }
    SampleFormat openedFormat() const; ///< what the device or the file takes. Any thread.

    /// Volume and pan of the device; at once, any thread.
    void setVolume(double gain) { device.setVolume(gain); }
    void setPan(double pan) { device.setPan(pan); }

    /// Debug builds: asserts that ring, device and last chain ring agree. Pump lock held.
    void checkInvariants();

    int outputMode = 0;        ///< 0 the device, 1 the recording file; fixed from `start` on
    bool recordSwitch = false; ///< recording wanted; fixed from `start` on

    std::atomic<int> bits{1};              ///< below 4: the output follows the host; relaxed
    std::atomic<bool> noiseshaping{false}; ///< relaxed

    DeviceController device;
    WavRecorder recorder;
    BufferTarget target;

private:
    struct Pending {
        FxBlock block;
        int offset = 0; ///< frames handed over
        bool active = false;
        bool paced = false; ///< it was its turn; only the buffer's end still counts
    };

    bool takeSlice(FxBlock& slice);
    SampleFormat wantedFormat(const FxBlock& slice);
    bool prepareDevice(const SampleFormat& wanted, const Pace& pace);
    bool playOut(const Pace& pace);
    void convertSlice(FxBlock& slice, const SampleFormat& format);
    void deliver(const Pace& pace);
    bool waitForTarget(const Pace& pace, int frames);
    bool waitForRoom(const Pace& pace, int piece);
    bool waitOrLeave(const Pace& pace, int ms);
    bool interrupted(const Pace& pace) const;
    void write(const std::byte* samples, int frames);
    void record(const std::byte* samples, int frames);

    const SystemClock& clock;
    FxClock& engineClock;
    FxArena& arena;
    FxRing* chainRing = nullptr; ///< of the last stage; pump lock

    std::int64_t servicePos =
        0; ///< up to here the last ring was taken; pump lock, as the next five
    std::int32_t serviceCursor = 0;
    SampleFormat deviceFormat; ///< what is open, and what slices are converted to
    SampleConverterHandle converter;
    Pending pending;
    bool editWaits = false; ///< what comes next isn't handed over inside an edit

    mutable RecursiveLock deviceRingLock{LockRank::ring};
    FxRing deviceRing;             ///< guarded by deviceRingLock
    std::int32_t searchCursor = 0; ///< guarded by deviceRingLock
    FxTime lastReportedTime = 0;   ///< guarded by deviceRingLock
    SampleFormat shownFormat;      ///< copy of deviceFormat for a display; likewise
};

} // namespace velorine
