#pragma once

#include "foundation/RecursiveLock.h"
#include "foundation/SampleFormat.h"
#include "output/RecordingCloser.h"
#include "output/RecordingWindow.h"
#include "output/WavFile.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace velorine {

/// Writes what the engine delivers to a RIFF WAVE file.
///
/// The delivering thread calls `write`; a thread of the recorder's own closes the file in a pause,
/// and the next write goes on with it. A format that changes in mid-file discards what the file
/// had. The constructor starts no thread and opens nothing; the destructor ends the thread and
/// completes the file.
class WavRecorder {
public:
    /// @param engineIdle  says that the chain has nothing to deliver; asked on the closing thread,
    ///                    without the recorder's lock
    WavRecorder(RecorderFiles& files, std::function<bool()> engineIdle);
    WavRecorder(const WavRecorder&) = delete;
    WavRecorder& operator=(const WavRecorder&) = delete;

    void start(); ///< starts the closing thread
    void stop();  ///< ends it; an open file stays open

    /// Records frames in the stream's format; opens the file if need be. With `active` 0 it closes
    /// the file instead. Delivering thread.
    ///
    /// @param byteCount  whole frames; a part of one at the end is left out
    void write(const void* dataPtr, std::size_t byteCount);

    /// Takes back the newest frames that were delivered, because the chain computes them again: as
    /// many as this recording has of them without a gap. Any thread, while nothing is delivered.
    void rewind(std::int64_t frames);

    /// Closes the file and names the next one, which the next write opens.
    ///
    /// @param recordingPath   empty: "velorine.wav" in the recordings folder
    /// @param overwriteFile   replace a file that is there, instead of going on with it
    /// @param recordingWindow of the frames delivered from now on
    void setPath(std::string_view recordingPath, bool overwriteFile,
                 RecordingWindow recordingWindow = {});

    /// Completes and closes the file; the next write goes on with it.
    void close();

    bool isOpen() const;
    std::string path() const; ///< as set, or the default once a write has opened it

    /// Frames may be missing from the recording since `setPath`: the disk refused a call. Any
    /// thread.
    bool failed() const noexcept { return file.failed(); }

    /// Since the last write, by the tick count that wraps at 2^32. Any thread.
    std::uint32_t msSinceWrite() const;

    std::atomic<std::int32_t> active{0};     ///< recording is wanted; relaxed, may lag one write
    std::atomic<std::int32_t> recordmode{0}; ///< setting: above 0 the file takes the device's place

    /// What is delivered now: as in `SampleFormat`; delivering thread only.
    std::int32_t streamFormat = sampleType::int16;
    std::int32_t streamChannels = 2;
    std::int32_t streamRate = 48000;

private:
    bool openFile(const SampleFormat& format) REQUIRES(lock);
    void closeFile() REQUIRES(lock);
    void noteWrite();

    mutable RecursiveLock lock{LockRank::recorder};
    std::atomic<std::uint32_t> lastWriteTick{0}; ///< ms; relaxed, stale delays the closing
    bool overwrite GUARDED_BY(lock) = false;     ///< the next open makes the file anew
    WavFile file;                                ///< guarded by lock, but for `failed`
    RecordingWindow window GUARDED_BY(lock);
    std::int64_t delivered GUARDED_BY(lock) = 0; ///< frames since the path was set

    /// Newest frames that were delivered and, as far as they lie in the window, recorded without a
    /// gap: a rewind that reaches behind them finds nothing of its own in the file.
    std::int64_t unbroken GUARDED_BY(lock) = 0;

    RecordingCloser closer; ///< last: its thread ends before the rest goes
};

} // namespace velorine
