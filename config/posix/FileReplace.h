#pragma once

#include "config/posix/Descriptor.h"

#include <filesystem>
#include <functional>
#include <string_view>

namespace velorine {

/// What has just been done of a file's replacement: a test ends the process there.
enum class FileStep { locked, opened, written, synced, renamed, folderSynced };
using FileStepHook = std::function<void(FileStep)>;

/// Holds a lock that all processes and threads share, by means of a file that stays for ever: who
/// dies gives it back, and that the file exists means nothing. Waits for it.
class FileLock {
public:
    FileLock(const std::filesystem::path& file, const FileStepHook& afterStep);

    /// False where the file can't be made, or the file system knows no locks.
    bool isHeld() const noexcept { return static_cast<bool>(held); }

private:
    Descriptor held;
};

/// Puts `text` in the place of a file's, so that at any moment, power cuts included, the file is
/// wholly the old one or wholly the new one. A symbolic link goes on pointing to the file; its
/// permissions stay. The caller holds the file's lock.
///
/// @return whether the new text stands; the old one does otherwise
bool replaceFile(const std::filesystem::path& file, std::string_view text,
                 const FileStepHook& afterStep);

} // namespace velorine
