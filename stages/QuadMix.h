#pragma once

#include "foundation/SampleFormat.h"

namespace velorine {

/// What is done to the pairs of a quadraphonic frame.
struct QuadSwitches {
    bool invertRear = false;
    bool rearOn = true;
    bool frontOn = true;
};

/// Whether `mixQuad` knows a source of this format: mono or stereo, in samples of 16 to 32 bits.
constexpr bool canMixQuad(const SampleFormat& format) noexcept {
    const int bytes = bytesPerSample(format.type);
    return (format.channels == 1 || format.channels == 2) && bytes >= 2 && bytes <= 4;
}

/// Makes frames of four channels: front left, front right, rear left, rear right.
///
/// A mono source goes to both sides. The rear pair is inverted, then muted, then, of a stereo
/// source, brought to its mean: so it never widens the image. An inverted integer is its one's
/// complement, for which full scale can't overflow; a mean is rounded down.
///
/// @param source  format of both windows, for which `canMixQuad` holds
/// @param front   `frames` frames, channels interleaved
/// @param rear    the same for the rear pair
/// @param out     `frames` frames of four channels; overlaps neither
void mixQuad(const SampleFormat& source, const void* front, const void* rear, int frames,
             const QuadSwitches& switches, void* out);

} // namespace velorine
