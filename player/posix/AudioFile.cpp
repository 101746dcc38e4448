#include "player/AudioFile.h"

#include "player/Text.h"
#include "stages/convert/SampleConverter.h"

#include <sndfile.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <system_error>

namespace velorine {

namespace {

static_assert(std::endian::native == std::endian::little);

/// The MP3 decoder writes remarks of its own to stderr, into the middle of a status line; what
/// matters of them the decoder also returns. Ours don't go through stdio.
class QuietStdio {
public:
    QuietStdio() {
        static std::FILE* const nowhere = std::fopen("/dev/null", "we");
        if (nowhere) stderr = nowhere;
    }
    ~QuietStdio() { stderr = kept; }
    QuietStdio(const QuietStdio&) = delete;
    QuietStdio& operator=(const QuietStdio&) = delete;

private:
    std::FILE* const kept = stderr;
};

std::string systemText(int error) {
    return std::generic_category().message(error);
}

void checkReadable(const char* path) {
    struct stat facts {};
    if (stat(path, &facts) != 0) throw AudioFileError(systemText(errno));
    if (S_ISDIR(facts.st_mode)) throw AudioFileError("is a directory");
    if (!S_ISREG(facts.st_mode)) throw AudioFileError("is not a regular file");
    if (facts.st_size == 0) throw AudioFileError("is empty");
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) throw AudioFileError(systemText(errno));
    close(descriptor);
}

std::string logOf(SNDFILE* file) {
    std::array<char, 16384> text{};
    sf_command(file, SFC_GET_LOG_INFO, text.data(), static_cast<int>(text.size()));
    return text.data();
}

/// The number behind `mark`, from `from` on.
std::optional<std::int64_t> numberBehind(std::string_view line, std::string_view mark) {
    const std::size_t at = line.find(mark);
    if (at == std::string_view::npos) return std::nullopt;
    std::int64_t value = 0;
    const char* const first = line.data() + at + mark.size();
    const auto parsed = std::from_chars(first, line.data() + line.size(), value);
    if (parsed.ec != std::errc{}) return std::nullopt;
    return value;
}

bool standsForUnknown(std::int64_t bytes) {
    return (bytes >= 0x7FFFF000 && bytes <= 0x80000024) || bytes >= 0xFFFFFF00;
}

} // namespace

std::optional<Shortfall> shortfallIn(const std::string& log) {
    std::optional<Shortfall> found;
    std::string_view rest = log;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        const std::string_view line = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        const auto present = numberBehind(line, "(should be ");
        const auto declared = numberBehind(line, " : ");
        if (!present || !declared || *declared <= *present || standsForUnknown(*declared)) continue;
        found =
            Shortfall{*declared, *present}; // the chunk of the audio comes behind the file's own
    }
    return found;
}

void AudioFile::Closer::operator()(sf_private_tag* opened) const noexcept {
    sf_close(opened);
}

AudioFile::AudioFile(const std::string& path) {
    checkReadable(path.c_str());
    const QuietStdio quiet;
    SF_INFO info{};
    file.reset(sf_open(path.c_str(), SFM_READ, &info));
    if (!file) throw AudioFileError("is not an audio file that can be read");
    if (info.frames == 0) throw AudioFileError("holds no audio");
    if (info.channels > SampleConverter::maxChannels)
        throw AudioFileError("has " + std::to_string(info.channels) + " channels; at most " +
                             std::to_string(SampleConverter::maxChannels) + " can be played");

    hostFormat = {info.samplerate, info.channels, hostBitsFor(info.format)};
    if (info.frames > 0 && info.frames < SF_COUNT_MAX) length = info.frames;
    if (const auto missing = shortfallIn(logOf(file.get())); missing && length) {
        const std::int64_t frameBytes = std::max<std::int64_t>(missing->present / *length, 1);
        const std::int64_t whole = std::max(missing->declared / frameBytes, *length + 1);
        trouble = "is cut short: " + partOf(*length, whole);
    }
}

std::size_t AudioFile::read(std::span<std::byte> bytes) {
    const auto frameBytes = static_cast<std::size_t>(hostFormat.bytesPerFrame());
    const auto wanted = static_cast<std::int64_t>(bytes.size() / frameBytes);
    const QuietStdio quiet;
    const std::int64_t got = std::max<std::int64_t>(decode(bytes.data(), wanted), 0);
    nextFrame += got;
    if (got < wanted) judgeEnd();
    return static_cast<std::size_t>(got) * frameBytes;
}

std::int64_t AudioFile::decode(std::byte* to, std::int64_t count) {
    const auto samples = static_cast<std::size_t>(count * hostFormat.channels);
    switch (hostFormat.bits) {
    case 16:
        return sf_readf_short(file.get(), reinterpret_cast<short*>(to), count);
    case 32:
        return sf_readf_int(file.get(), reinterpret_cast<int*>(to), count);
    case 64:
        return sf_readf_double(file.get(), reinterpret_cast<double*>(to), count);
    case 8: {
        narrow.resize(samples);
        const std::int64_t got = sf_readf_short(file.get(), narrow.data(), count);
        for (std::size_t i = 0; i < static_cast<std::size_t>(got * hostFormat.channels); ++i)
            to[i] = static_cast<std::byte>((narrow[i] >> 8) + 128);
        return got;
    }
    default: {
        wide.resize(samples);
        const std::int64_t got = sf_readf_int(file.get(), wide.data(), count);
        for (std::size_t i = 0; i < static_cast<std::size_t>(got * hostFormat.channels); ++i) {
            const auto value = static_cast<std::uint32_t>(wide[i]);
            to[3 * i] = static_cast<std::byte>(value >> 8 & 0xFF);
            to[3 * i + 1] = static_cast<std::byte>(value >> 16 & 0xFF);
            to[3 * i + 2] = static_cast<std::byte>(value >> 24);
        }
        return got;
    }
    }
}

void AudioFile::judgeEnd() {
    if (!trouble.empty()) return;
    if (!length)
        trouble = "is cut short after " + timeOf(nextFrame);
    else if (nextFrame < *length)
        trouble = "is cut short or damaged: " + partOf(nextFrame, *length);
}

bool AudioFile::seek(std::int64_t frame) {
    const QuietStdio quiet;
    const sf_count_t reached = sf_seek(file.get(), frame, SF_SEEK_SET);
    if (reached < 0) return false;
    nextFrame = reached;
    return true;
}

/// "100 of 2000 frames (0:01 of 0:20) are there"
std::string AudioFile::partOf(std::int64_t there, std::int64_t whole) const {
    return std::to_string(there) + " of " + std::to_string(whole) + " frames (" + timeOf(there) +
           " of " + timeOf(whole) + ") are there";
}

std::string AudioFile::timeOf(std::int64_t frame) const {
    return clockText(frame * 1000 / std::max(hostFormat.rate, 1));
}

} // namespace velorine
