#include "config/posix/FileReplace.h"

#include <sys/file.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>

namespace velorine {

namespace {

bool writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

void note(const FileStepHook& hook, FileStep step) {
    if (hook) hook(step);
}

/// The file itself, where `file` is a link to it.
std::filesystem::path behindLinks(const std::filesystem::path& file) {
    std::error_code error;
    auto real = std::filesystem::canonical(file, error);
    return error ? file : real;
}

bool writeNew(const std::filesystem::path& temporary, std::string_view text, mode_t mode,
              const FileStepHook& afterStep) {
    Descriptor file{temporary, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0666};
    if (!file) return false;
    if (mode != 0) ::fchmod(file.get(), mode);
    note(afterStep, FileStep::opened);
    if (!writeAll(file.get(), text)) return false;
    note(afterStep, FileStep::written);
    if (::fsync(file.get()) != 0) return false;
    note(afterStep, FileStep::synced);
    return file.close();
}

} // namespace

std::optional<std::string> readAll(const Descriptor& file) {
    std::string text;
    std::array<char, 4096> piece{};
    for (;;) {
        const ssize_t got = ::read(file.get(), piece.data(), piece.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return std::nullopt;
        if (got == 0) return text;
        text.append(piece.data(), static_cast<std::size_t>(got));
    }
}

FileLock::FileLock(const std::filesystem::path& file, const FileStepHook& afterStep) {
    Descriptor opened{file, O_RDWR | O_CREAT, 0666};
    if (!opened) return;
    int result = 0;
    do
        result = ::flock(opened.get(), LOCK_EX);
    while (result != 0 && errno == EINTR);
    if (result != 0) return;
    held = std::move(opened);
    note(afterStep, FileStep::locked);
}

bool replaceFile(const std::filesystem::path& file, std::string_view text,
                 const FileStepHook& afterStep) {
    const std::filesystem::path target = behindLinks(file);
    std::filesystem::path temporary = target;
    temporary += ".new"; // one name will do: only the holder of the lock writes it

    struct stat old {};
    const mode_t mode = ::stat(target.c_str(), &old) == 0 ? old.st_mode & 07777 : 0;
    if (!writeNew(temporary, text, mode, afterStep) ||
        ::rename(temporary.c_str(), target.c_str()) != 0) {
        ::unlink(temporary.c_str());
        return false;
    }
    note(afterStep, FileStep::renamed);
    const Descriptor folder{target.parent_path(), O_RDONLY | O_DIRECTORY};
    if (folder) ::fsync(folder.get()); // some file systems refuse, and order the rename themselves
    note(afterStep, FileStep::folderSynced);
    return true;
}

} // namespace velorine
