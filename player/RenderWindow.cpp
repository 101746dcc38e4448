#include "player/RenderWindow.h"

#include "kestrix/FrameSizes.h"

#include <cmath>

namespace velorine {

/// The record, the fader and the tail hand frames on one for one: output frame i is input frame i.
///
/// Kestrix keeps the rate, but its output frame i holds input frame i + frameLen/2: the first
/// frameLen/2 input frames never come out. As many zeros ahead of the programme take their place,
/// after which output frame 0 is the programme's first; nothing has to be skipped.
///
/// The resampler's first output frame stands at its first input frame, so that it moves none; it
/// sets the length. What the stages still hold at the programme's end comes out as zeros are
/// written behind it, for as long as the recording isn't complete.
RenderWindow renderWindow(std::int64_t frames, int rate, const RenderChain& chain) {
    constexpr std::int64_t resamplerShift = 0; // output frames
    const int outRate = chain.outRate > 0 ? chain.outRate : rate;

    RenderWindow window;
    window.leadFrames =
        chain.kestrix ? computeFrameSizes(static_cast<float>(rate)).frameLen / 2 : 0;
    window.skipFrames = resamplerShift;
    if (outRate == rate && chain.speed == 1.0)
        window.frameCount = frames; // exact, however long
    else
        window.frameCount =
            std::llround(static_cast<double>(frames) * outRate / rate / chain.speed);
    return window;
}

} // namespace velorine
