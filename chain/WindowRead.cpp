#include "chain/WindowRead.h"

#include "chain/RingSearch.h"

#include <algorithm>
#include <cstring>

namespace velorine {

SampleFormat formatAtFrame(const FxRing& ring, std::int64_t frame) {
    if (ring.empty()) return {};
    int index = indexAt(ring, frame);
    while (index < ring.count() && ring.at(index).empty())
        ++index; // a marker has no samples
    return ring.at(std::min(index, ring.count() - 1)).format;
}

FrameWindow readWindow(const FxRing& ring, SampleConverterHandle& converter,
                       const std::optional<SampleFormat>& format, std::int64_t start, int frames) {
    FrameWindow window;
    window.format = format ? *format : formatAtFrame(ring, start);
    window.frames = frames;
    window.timeStart = timeAtFrame(ring, start);
    window.timeEnd = timeAtFrame(ring, start + frames);

    const auto frameBytes = static_cast<std::size_t>(bytesPerFrame(window.format));
    const std::size_t bytes = frameBytes * static_cast<std::size_t>(frames);
    window.samples.reset(static_cast<std::byte*>(memAlloc(std::max<std::size_t>(bytes, 1))));

    std::int64_t filled = start; // frames before it are in place
    const std::int64_t end = start + frames;
    const auto place = [&](std::int64_t frame) {
        return window.samples.get() + static_cast<std::size_t>(frame - start) * frameBytes;
    };
    const auto silenceTo = [&](std::int64_t frame) {
        if (frame <= filled) return;
        std::memset(place(filled), silenceByte(window.format.type),
                    static_cast<std::size_t>(frame - filled) * frameBytes);
        filled = frame;
    };

    for (int i = indexAt(ring, start); i < ring.count() && filled < end; ++i) {
        const FxBlock& block = ring.at(i);
        const std::int64_t from = std::max(block.posStart, filled);
        const std::int64_t to = std::min(block.posEnd, end);
        if (to <= from) continue;
        silenceTo(from);

        SampleFormat source = block.format;
        source.rate = window.format.rate;
        const int sourceBytes = bytesPerFrame(source);
        const auto count = static_cast<int>(to - from);
        const ConstFrameSpan piece{block.data() + (from - block.posStart) * sourceBytes, count,
                                   sourceBytes};
        if (source.type == window.format.type && source.channels == window.format.channels)
            std::memcpy(place(from), piece.first, static_cast<std::size_t>(count) * frameBytes);
        else
            converter.convertFull(piece, source, {place(from), count, static_cast<int>(frameBytes)},
                                  window.format);
        filled = to;
    }
    silenceTo(end);
    return window;
}

} // namespace velorine
