#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace velorine {

class Console;

/// The progress bar of a render, on a terminal only. One thread.
class RenderProgress {
public:
    /// @param outputName   file that is written
    /// @param totalFrames  of all inputs, at `rate` Hz
    RenderProgress(Console& messages, std::string outputName, std::int64_t totalFrames, int rate);
    ~RenderProgress();
    RenderProgress(const RenderProgress&) = delete;
    RenderProgress& operator=(const RenderProgress&) = delete;

    /// Further frames have gone into the module.
    void advance(std::int64_t frames);

private:
    using Clock = std::chrono::steady_clock;

    Console& console;
    const std::string name;
    const std::int64_t total;
    const double framesPerSecond;
    const Clock::time_point begun = Clock::now();
    Clock::time_point shown = begun;
    std::int64_t done = 0;
};

} // namespace velorine
