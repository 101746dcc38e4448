#pragma once

#include "foundation/FixedString.h"
#include "foundation/SampleFormat.h"
#include "output/RecorderFile.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace velorine {

/// A RIFF WAVE file that frames are appended to. Its header is right whenever the file is closed.
///
/// No call raises a message: what the disk refuses is skipped, and `failed` remembers it. Guarded
/// by its owner; `failed` from any thread.
class WavFile {
public:
    explicit WavFile(RecorderFiles& fileSystem) : files(fileSystem) {}
    ~WavFile() { finish(); }
    WavFile(const WavFile&) = delete;
    WavFile& operator=(const WavFile&) = delete;

    /// Opens the file at `path` to go on with it, in the file's own format. One too short for a
    /// header is started anew, in `current`. In any other case the first 44 bytes become a header
    /// of ours.
    /// @return false when there is no such file
    bool openExisting(const SampleFormat& current);

    /// Opens a new file at `path`, in place of an old one.
    /// @return false when that was refused
    bool create(const SampleFormat& current);

    /// Discards all frames and goes on in another format. The file is open.
    void restart(const SampleFormat& current);

    /// Writes whole frames behind the last one. The file is open.
    /// @return false when the disk took less
    bool append(std::span<const std::byte> frames);

    /// Cuts off the newest frames, at most as many as there are. The file is open.
    void takeBack(std::int64_t frames);

    /// Completes the header and closes; nothing when no file is open.
    void finish();

    bool isOpen() const noexcept { return handle != nullptr; }
    bool isBroken() const noexcept { return broken; }
    const SampleFormat& format() const noexcept { return fileFormat; }

    /// A file call was refused since `forgetFailure`.
    bool failed() const noexcept { return refused.load(std::memory_order_relaxed); }
    void forgetFailure() noexcept { refused.store(false, std::memory_order_relaxed); }

    FixedString path;

private:
    bool check(bool done) noexcept;
    void adoptFormat();
    void writeHeader();
    std::int64_t endOfWholeFrames();

    RecorderFiles& files;
    std::unique_ptr<RecorderFile> handle; ///< null: no file is open
    bool broken = false;                  ///< the open file's format could not be read
    SampleFormat fileFormat;              ///< of the open file, or of the last one
    std::int64_t end = 0;                 ///< bytes: where the next frame goes
    std::atomic<bool> refused{false};     ///< relaxed: a report, of no effect
};

} // namespace velorine
