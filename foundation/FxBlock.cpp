#include "foundation/FxBlock.h"

#include "foundation/Rounding.h"

#include <cstring>

namespace velorine {

void FxBlock::clear() {
    buffer.renew();
    first = 0;
    last = 0;
}

void* FxBlock::allocate(FxArena& arena, const SampleFormat& newFormat, int frames) {
    clear();
    format = newFormat;
    last = frames;
    return buffer.allocate(arena, frames * bytesPerFrame(format));
}

void* FxBlock::writable(FxArena& arena) {
    if (buffer.isShared()) {
        const FxBufferRef shared = buffer;
        const std::ptrdiff_t frameBytes = bytesPerFrame(format);
        const std::ptrdiff_t offset = first * frameBytes;
        const int length = static_cast<int>(frames() * frameBytes);
        last = frames();
        first = 0;
        void* const samples = buffer.allocate(arena, length);
        if (length > 0)
            std::memcpy(samples, shared.data() + offset, static_cast<std::size_t>(length));
    }
    return buffer.data() + static_cast<std::ptrdiff_t>(first) * bytesPerFrame(format);
}

bool FxBlock::sameSpans(const FxBlock& other) const noexcept {
    return timeStart == other.timeStart && timeEnd == other.timeEnd && srcStart == other.srcStart &&
           srcEnd == other.srcEnd;
}

FxTime FxBlock::timeAt(std::int64_t pos) const noexcept {
    return timeStart + scaledRounded(timeEnd - timeStart, pos - posStart, posEnd - posStart);
}

double FxBlock::srcAt(double pos) const noexcept {
    constexpr double frame = 1.0 / 65536.0;
    const auto start = static_cast<double>(srcStart);
    if (posStart == posEnd) return start * frame;
    const auto span = static_cast<double>(srcEnd - srcStart);
    return (start +
            span * (pos - static_cast<double>(posStart)) / static_cast<double>(posEnd - posStart)) *
           frame;
}

} // namespace velorine
