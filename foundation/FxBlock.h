#pragma once

#include "foundation/FxArena.h"
#include "foundation/FxTime.h"
#include "foundation/SampleFormat.h"

#include <cstdint>

namespace velorine {

/// A run of frames in a shared buffer, with what it covers on each axis.
///
/// A block without frames is meaningful: it marks an end of data or a change of format at its
/// position, and its format says what follows. Copies share the samples.
struct FxBlock {
    FxBufferRef buffer;
    std::int32_t first = 0; ///< frames `[first, last)` of the buffer are the block's
    std::int32_t last = 0;
    FxTime timeStart = 0; ///< host stream time that the block covers
    FxTime timeEnd = 0;
    std::int64_t srcStart = 0; ///< extent in the stage's input, frames in 48.16 fixed point
    std::int64_t srcEnd = 0;
    SampleFormat format;
    std::int64_t posStart = 0; ///< frame numbers in the stage's output
    std::int64_t posEnd = 0;

    int frames() const noexcept { return last - first; }
    bool empty() const noexcept { return first == last; }

    /// First frame of the block in the buffer, channels interleaved.
    const std::byte* data() const noexcept {
        return buffer.data() + static_cast<std::ptrdiff_t>(first) * bytesPerFrame(format);
    }

    /// Makes the block an empty one with a buffer of its own; format and spans stay.
    void clear();

    /// Fresh room for `frames` frames of `format`, of which this block is then the one owner.
    /// Returns the first sample; 64-bit access is aligned.
    void* allocate(FxArena& arena, const SampleFormat& format, int frames);

    /// Writable samples: a buffer that is shared is copied first.
    void* writable(FxArena& arena);

    /// Spans of time and source the same: the test by which markers collapse.
    bool sameSpans(const FxBlock& other) const noexcept;

    /// Stream time at frame `pos` of the block's output axis, which lies in `[posStart, posEnd]`;
    /// a block of no frames yields `timeStart`.
    FxTime timeAt(std::int64_t pos) const noexcept;

    /// Position in the stage's input, in frames, at output frame `pos`.
    double srcAt(double pos) const noexcept;
};

} // namespace velorine
