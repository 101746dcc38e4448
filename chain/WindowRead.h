#pragma once

#include "foundation/FxRing.h"
#include "foundation/Memory.h"
#include "stages/convert/SampleConverter.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace velorine {

/// Frames in one piece, copied out of a ring.
struct FrameWindow {
    std::unique_ptr<std::byte, MemDeleter> samples; ///< 64-byte aligned, channels interleaved
    SampleFormat format;
    int frames = 0;
    FxTime timeStart = 0; ///< stream time that the frames cover
    FxTime timeEnd = 0;

    template <typename Sample>
    Sample* as() const noexcept {
        return reinterpret_cast<Sample*>(samples.get());
    }
};

/// Reads `frames` frames from frame `start` on, however many blocks they lie in.
///
/// Frames that no block holds are silence. Blocks of another type or channel count are converted;
/// rates are not.
///
/// @param format  what is wanted; empty takes the format of the block at `start`
FrameWindow readWindow(const FxRing& ring, SampleConverterHandle& converter,
                       const std::optional<SampleFormat>& format, std::int64_t start, int frames);

/// Format of the block at `frame`, or of the one nearest to it; 16-bit stereo at 48 kHz in an empty
/// ring.
SampleFormat formatAtFrame(const FxRing& ring, std::int64_t frame);

} // namespace velorine
