#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>
#include <utility>

namespace velorine {

/// An open file. Owns the descriptor; move-only.
class Descriptor {
public:
    Descriptor() = default; ///< none
    Descriptor(const std::filesystem::path& file, int flags, mode_t mode = 0)
        : number(::open(file.c_str(), flags | O_CLOEXEC, mode)) {}
    Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number, other.number);
        return *this;
    }
    ~Descriptor() { close(); }

    /// @return whether all that was written got through
    bool close() { return number < 0 || ::close(std::exchange(number, -1)) == 0; }

    int get() const noexcept { return number; }
    explicit operator bool() const noexcept { return number >= 0; }

private:
    int number = -1;
};

/// What is left to read; nothing if it can't be read.
std::optional<std::string> readAll(const Descriptor& file);

} // namespace velorine
