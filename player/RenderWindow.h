#pragma once

#include <cstdint>

namespace velorine {

/// What the chain of a run does to the place and the length of what it plays.
struct RenderChain {
    bool kestrix = false; ///< the processor is in the chain and switched on
    int outRate = 0;      ///< Hz; 0 keeps the input's
    double speed = 1.0;   ///< tempo: 2.0 plays twice as fast
};

/// What has to be written and recorded so that a file holds a programme whole and in its place.
struct RenderWindow {
    std::int64_t leadFrames = 0; ///< input: zeros ahead of the programme
    std::int64_t skipFrames = 0; ///< output: first frames that aren't recorded
    std::int64_t frameCount = 0; ///< output: frames that are
};

/// The window for a programme of `frames` input frames.
RenderWindow renderWindow(std::int64_t frames, int rate, const RenderChain& chain);

} // namespace velorine
