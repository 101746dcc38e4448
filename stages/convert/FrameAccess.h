#pragma once

#include "stages/convert/ConversionPlan.h"

#include <cstdint>

namespace velorine {

/// Frames in memory, of one sample type, any number of bytes apart.
struct FrameRun {
    const std::uint8_t* first;
    int frames;
    int bytesPerFrame;
    int channels;
};

/// Reads frames sample by sample into `channels` interleaved channels: by `map`, times `gain`.
void readFrames(const FrameRun& from, int sampleType, ChannelMap map, int channels, double gain,
                double* to);

/// Copies the first `frameBytes` bytes of each frame.
void copyFrames(const FrameRun& from, int frameBytes, std::uint8_t* to, int toBytesPerFrame);

} // namespace velorine
