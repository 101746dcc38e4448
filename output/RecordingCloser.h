#pragma once

#include "foundation/FlaggedEvent.h"
#include "foundation/Thread.h"

#include <cstdint>
#include <functional>

namespace velorine {

class WavRecorder;

/// The thread that closes a recording once nothing is delivered for a moment, so that the file is
/// complete and free for others while playback pauses.
class RecordingCloser final : public Thread {
public:
    /// @param engineIdle  says, on this thread, that the chain has nothing to deliver
    RecordingCloser(WavRecorder& owner, std::function<bool()> engineIdle);
    ~RecordingCloser() override { join(); }

    std::uint32_t run() override;

    FlaggedEvent enabled; ///< a file is open
    FlaggedEvent wake;    ///< frames were written

private:
    static constexpr int checkMs = 200;
    static constexpr std::uint32_t pauseMs = 350; ///< longest pause of a busy engine

    WavRecorder& recorder;
    const std::function<bool()> isEngineIdle;
};

} // namespace velorine
