#include "player/RenderProgress.h"

#include "player/Console.h"
#include "player/StatusLine.h"

#include <utility>

namespace velorine {

namespace {
constexpr auto period = std::chrono::milliseconds{100};
}

RenderProgress::RenderProgress(Console& messages, std::string outputName, std::int64_t totalFrames,
                               int rate)
    : console(messages), name(std::move(outputName)), total(totalFrames),
      framesPerSecond(static_cast<double>(rate)) {}

RenderProgress::~RenderProgress() {
    console.clearLive();
}

void RenderProgress::advance(std::int64_t frames) {
    done += frames;
    if (!console.isTerminal()) return;
    const Clock::time_point now = Clock::now();
    if (now - shown < period) return;
    shown = now;
    const double elapsed = std::chrono::duration<double>(now - begun).count();
    const auto share = static_cast<double>(done) / static_cast<double>(total);
    const double speed = static_cast<double>(done) / framesPerSecond / elapsed;
    console.showLive(progressLine(share, speed, name, console.columns()));
}

} // namespace velorine
