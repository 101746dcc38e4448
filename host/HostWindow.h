#pragma once

#include <cstdint>

namespace velorine {

/// Messages that the system sends to the host's main window: all are WM_USER with these values in
/// lParam.
namespace hostMessage {
inline constexpr unsigned user = 1024;
inline constexpr std::intptr_t aboutToClose = 104; ///< its answer isn't used
inline constexpr std::intptr_t trackLength = 105;  ///< wParam 1: length of the track in seconds
inline constexpr std::intptr_t listPosition = 125;
inline constexpr std::intptr_t playlistFile = 211; ///< wParam a list position: its file name
inline constexpr std::intptr_t goesOn = 400; ///< not 0: the host goes on to another track at once
} // namespace hostMessage

/// The host's main window, as far as the system needs it. Any thread.
class HostWindow {
public:
    /// Takes the window that the host put into its record; 0 and -1 leave the one that is kept.
    void keep(void* window);

    void* handle() const noexcept { return window; }

    /// Asks the host; 0 without a window, or when the host hangs.
    std::intptr_t send(std::uintptr_t wParam, std::intptr_t lParam) const;

    /// Lets the library stay loaded for as long as the window lives, and watches its messages. Done
    /// once and never undone.
    void watch();

    /// The last message that matters was the host's end-of-file message. Nothing hangs on it: what
    /// the host answers to `goesOn` decides.
    static bool sawEndOfFile() noexcept;

private:
    void* window = nullptr;
    bool watched = false;
};

/// What a message makes of the end-of-file flag: WM_USER leaves it, the end-of-file message sets
/// it, any other clears it.
bool endOfFileAfter(unsigned message, bool before) noexcept;

} // namespace velorine
