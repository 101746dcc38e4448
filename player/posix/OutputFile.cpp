#include "player/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace velorine {

namespace {

std::string systemText(int error) {
    return std::generic_category().message(error);
}

/// A link stays, and what it leads to is replaced.
std::string resolved(const std::string& path) {
    std::error_code failed;
    const auto real = std::filesystem::canonical(path, failed);
    return failed ? path : real.string();
}

/// Short whatever the target's name, and hidden.
std::string temporaryBeside(const std::string& path, int number) {
    const auto folder = std::filesystem::path{path}.parent_path();
    const std::string name =
        ".velorine-" + std::to_string(getpid()) + "-" + std::to_string(number) + ".part";
    return (folder / name).string();
}

} // namespace

OutputFile::OutputFile(const std::string& path) : target(resolved(path)) {
    struct stat facts {};
    if (stat(target.c_str(), &facts) == 0) {
        if (S_ISDIR(facts.st_mode)) throw OutputFileError("is a directory");
        if (S_ISCHR(facts.st_mode)) return;
        if (!S_ISREG(facts.st_mode)) throw OutputFileError("is not a regular file");
        if (access(target.c_str(), W_OK) != 0) throw OutputFileError(systemText(errno));
    }
    for (int number = 0; number < 1000; ++number) {
        const std::string name = temporaryBeside(target, number);
        const int made = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (made >= 0) {
            close(made);
            temporary = name;
            return;
        }
        if (errno != EEXIST) break;
    }
    throw OutputFileError("cannot be written: " + systemText(errno));
}

OutputFile::~OutputFile() {
    if (!temporary.empty()) unlink(temporary.c_str());
}

std::int64_t OutputFile::size() const {
    struct stat facts {};
    if (temporary.empty() || stat(temporary.c_str(), &facts) != 0) return -1;
    return facts.st_size;
}

void OutputFile::commit() {
    if (temporary.empty()) return;
    if (std::rename(temporary.c_str(), target.c_str()) != 0)
        throw OutputFileError("cannot be written: " + systemText(errno));
    temporary.clear();
}

bool isSameFile(const std::string& one, const std::string& other) {
    std::error_code failed;
    return std::filesystem::equivalent(one, other, failed) && !failed;
}

} // namespace velorine
