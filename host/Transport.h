#pragma once

#include "foundation/FxTime.h"

#include <atomic>
#include <cstdint>

namespace velorine {

class FxChainEdit;
class FxEngine;
class HostStream;
class HostTimeLine;
class HostWindow;

/// Open, close, seek, pause, volume: what the host asks for besides data.
///
/// None of them waits for the queue to run out and none cuts it: each takes the chain back to
/// shortly behind what is heard, schedules the fade that belongs to it, and lets the chain go on.
/// The host's threads.
class Transport {
public:
    Transport(HostStream& hostStream, FxEngine& fxEngine, HostTimeLine& hostTimeLine,
              HostWindow& hostWindow)
        : stream(hostStream), engine(fxEngine), timeLine(hostTimeLine), window(hostWindow) {}

    /// A track begins: `bits` of 8, 16, 24, 28, 32, or 64 for double; others keep the depth before.
    void open(int rate, int channels, int bits);

    /// The track ends. What the window answers to "goes on" decides: the next track follows without
    /// a break, or the user has stopped.
    void close();

    /// The next data is from `ms` on.
    void flush(int ms);

    /// @return the state before
    int pause(int on);

    void setVolume(int volume); ///< 0 to 255, negative is ignored
    void setPan(int pan);       ///< -128 to 128, others are ignored; -1 to 1 is the centre

    /// Length of the current track, asked of the host once; 0 when it doesn't know.
    FxTime trackLength();

    double deviceGain() const noexcept {
        return static_cast<double>(gain.load());
    } ///< linear, as the device got it

    std::atomic<bool> fadeOnSeek{true};
    std::atomic<bool> fadeOnStop{true};

private:
    /// What an edit puts on the fader.
    struct Fade {
        int marginMs;
        int durationMs;
        bool linear;
        int kind;
        int spliceMs;
    };

    FxTime fadeTo(FxTime at, const Fade& fade);
    void cutWhilePaused();
    void closeLive(bool goesOn);
    void closeRecording();

    HostStream& stream;
    FxEngine& engine;
    HostTimeLine& timeLine;
    HostWindow& window;
    std::atomic<float> volumeLevel{1.0f};
    std::atomic<float> panGain{1.0f}; ///< a further factor; 1.0
    std::atomic<float> gain{1.0f};    ///< volume as the device got it
    std::atomic<float> panPosition{0.0f};
};

} // namespace velorine
