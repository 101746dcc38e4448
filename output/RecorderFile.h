#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace velorine {

/// An open file that audio is recorded to; nobody else writes to it meanwhile. One thread at a
/// time. The destructor closes what `close` hasn't.
class RecorderFile {
public:
    virtual ~RecorderFile() = default;

    /// @return bytes read from `offset` on: fewer than asked for at the end of the file, 0 also on
    ///         an error
    virtual std::size_t read(std::int64_t offset, std::span<std::byte> bytes) = 0;

    /// @return false when not all of `bytes` could be written; some of them may have been
    virtual bool write(std::int64_t offset, std::span<const std::byte> bytes) = 0;

    virtual std::int64_t size() = 0; ///< bytes; 0 when it can't be told

    /// Cuts the file to `size` bytes.
    virtual bool truncate(std::int64_t size) = 0;

    /// Nothing else may be called afterwards. False: the system had kept back a write that then
    /// failed.
    virtual bool close() = 0;
};

/// Where recordings are: the machine's file system, or a test's. Any thread.
///
/// A path is text in the machine's own narrow encoding; folders end at '/', on Windows at '\' too.
class RecorderFiles {
public:
    virtual ~RecorderFiles() = default;

    /// Opens a file that is there, to read and write; others may only read it.
    /// @return null when there is none, or it can't be had
    virtual std::unique_ptr<RecorderFile> openExisting(const char* path) = 0;

    /// Opens an empty file to write, in place of one that may be there; makes the folder (one
    /// level) if it is missing.
    /// @return null when that was refused
    virtual std::unique_ptr<RecorderFile> create(const char* path) = 0;

    static RecorderFiles& native(); ///< the machine's
};

} // namespace velorine
