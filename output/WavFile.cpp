#include "output/WavFile.h"

#include "output/WavHeader.h"

#include <algorithm>
#include <array>

namespace velorine {

bool WavFile::openExisting(const SampleFormat& current) {
    handle = files.openExisting(path.c_str());
    if (!handle) return false;

    if (handle->size() < wavHeaderBytes) {
        restart(current);
        return true;
    }
    adoptFormat();
    writeHeader();
    end = endOfWholeFrames();
    return true;
}

bool WavFile::create(const SampleFormat& current) {
    handle = files.create(path.c_str());
    if (!check(handle != nullptr)) return false;

    fileFormat = current;
    end = wavHeaderBytes;
    writeHeader();
    return true;
}

void WavFile::restart(const SampleFormat& current) {
    fileFormat = current;
    end = wavHeaderBytes;
    check(handle->truncate(0));
    writeHeader();
}

bool WavFile::append(std::span<const std::byte> frames) {
    if (!check(handle->write(end, frames))) {
        end = endOfWholeFrames();
        return false;
    }
    end += static_cast<std::int64_t>(frames.size());
    return true;
}

void WavFile::takeBack(std::int64_t frames) {
    const std::int64_t bytes = frames * bytesPerFrame(fileFormat);
    end = std::max<std::int64_t>(end - bytes, wavHeaderBytes);
    check(handle->truncate(end));
}

void WavFile::finish() {
    if (!handle) return;
    writeHeader();
    check(handle->close());
    handle.reset();
    broken = false;
}

bool WavFile::check(bool done) noexcept {
    if (!done) refused.store(true, std::memory_order_relaxed);
    return done;
}

/// A format that can't be read stays what it was, which is right for a file that was closed in a
/// pause.
void WavFile::adoptFormat() {
    std::array<std::byte, wavFieldsBytes> fields{};
    broken = !check(handle->read(wavFieldsOffset, fields) == fields.size());
    if (broken) return;

    std::array<std::byte, wavSubtypeBytes> subtype{};
    if (wavIsExtensible(fields)) handle->read(wavSubtypeOffset, subtype);
    fileFormat = wavFormat(fields, subtype);
}

void WavFile::writeHeader() {
    check(handle->write(0, wavHeader(fileFormat, handle->size() - wavHeaderBytes)));
}

/// A file cut short inside a frame, by a full disk perhaps, goes on at that frame's start:
/// otherwise all that follows would be shifted by some bytes, which is noise.
std::int64_t WavFile::endOfWholeFrames() {
    const std::int64_t data = std::max<std::int64_t>(handle->size() - wavHeaderBytes, 0);
    const int frameBytes = std::max(bytesPerFrame(fileFormat), 1);
    return wavHeaderBytes + data - data % frameBytes;
}

} // namespace velorine
