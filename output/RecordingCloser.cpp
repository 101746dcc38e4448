#include "output/RecordingCloser.h"

#include "output/WavRecorder.h"

#include <utility>

namespace velorine {

RecordingCloser::RecordingCloser(WavRecorder& owner, std::function<bool()> engineIdle)
    : recorder(owner), isEngineIdle(std::move(engineIdle)) {}

std::uint32_t RecordingCloser::run() {
    while (waitForFirst(Kernel::forever, stop, enabled) != 0) {
        const int fired = waitForFirst(checkMs, stop, wake);
        if (fired == 0) break;
        if (fired == 1) { // a write: a pause is measured from here on
            wake.reset();
            continue;
        }
        if (isEngineIdle() || recorder.msSinceWrite() > pauseMs) recorder.close();
    }
    return 0;
}

} // namespace velorine
