#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace velorine {

/// Messages to the window that a DSP plug-in lives under.
namespace dspMessage {
inline constexpr unsigned init = 0x401;
inline constexpr unsigned config = 0x402;
inline constexpr unsigned quit = 0x403;
inline constexpr unsigned format = 0x404; ///< say what the format is
inline constexpr unsigned begin = 0x408;  ///< the window exists: sent once, first of all
} // namespace dspMessage

/// A thread with a hidden window and a message pump, on which a DSP plug-in's own windows can live.
/// Where there are no windows it is a thread that takes messages. Started and ended by its owner;
/// `send` from any thread.
class WaDspWindowThread {
public:
    /// @param onMessage  run on the thread for each message but `begin`; it may not throw
    explicit WaDspWindowThread(std::function<void(unsigned message)> onMessage);

    /// Ends the thread. On Windows one that doesn't end within 5 s, since a plug-in holds it, is
    /// ended by force.
    ~WaDspWindowThread();
    WaDspWindowThread(const WaDspWindowThread&) = delete;
    WaDspWindowThread& operator=(const WaDspWindowThread&) = delete;

    /// Starts the thread and returns once its window is there and has had `begin`. A second call
    /// does nothing.
    void start();

    bool hasStarted() const noexcept { return pump != nullptr; }

    /// Has a message run on the thread, and returns once that is done. Nothing without a thread.
    void send(unsigned message);

    /// The window; null without a thread, and where there are no windows.
    void* window() const noexcept;

private:
    struct State;
    class Pump;

    // The thread goes first: what it uses outlives it.
    std::unique_ptr<State> state;
    std::unique_ptr<Pump> pump; ///< null: not started
};

/// Gives back the library of a DSP plug-in.
void releaseDspLibrary(void* library);

} // namespace velorine
