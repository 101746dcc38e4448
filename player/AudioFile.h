#pragma once

#include "player/HostFormat.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

struct sf_private_tag;

namespace velorine {

/// Why a file can't be played, for a person, without its name.
class AudioFileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// An audio file, decoded to what the module takes. One thread.
class AudioFile {
public:
    /// Opens the file. @throws AudioFileError for what is missing, empty or not audio
    explicit AudioFile(const std::string& path);

    const HostFormat& format() const noexcept { return hostFormat; }

    /// Frames that are there by the file's word; nothing when the file doesn't say.
    std::optional<std::int64_t> frames() const noexcept { return length; }

    std::int64_t position() const noexcept { return nextFrame; } ///< frame that `read` takes next

    /// Decodes whole frames, as many as fit. @return bytes; 0 at the end
    std::size_t read(std::span<std::byte> bytes);

    /// Goes to a frame, 0 or above. @return false when the file can't
    bool seek(std::int64_t frame);

    /// What is wrong with the file as far as it has been read, for a person; empty for nothing. A
    /// file that is cut short tells so at the latest at its end.
    const std::string& problem() const noexcept { return trouble; }

private:
    struct Closer {
        void operator()(sf_private_tag* opened) const noexcept;
    };

    std::int64_t decode(std::byte* to, std::int64_t count);
    void judgeEnd();
    std::string partOf(std::int64_t there, std::int64_t whole) const;
    std::string timeOf(std::int64_t frame) const;

    std::unique_ptr<sf_private_tag, Closer> file;
    HostFormat hostFormat;
    std::optional<std::int64_t> length;
    std::int64_t nextFrame = 0;
    std::string trouble;
    std::vector<short> narrow; ///< samples on their way to 8 bits
    std::vector<int> wide;     ///< samples on their way to 24 bits
};

/// The share of the audio that a file was cut down to, by what the decoder noted as it read the
/// file's header.
struct Shortfall {
    std::int64_t declared = 0; ///< bytes by the header
    std::int64_t present = 0;
};

/// Finds in libsndfile's log the chunk that says more than the file holds. Sizes that a program
/// puts there when it doesn't know them, because it writes to a pipe, don't count.
std::optional<Shortfall> shortfallIn(const std::string& log);

} // namespace velorine
