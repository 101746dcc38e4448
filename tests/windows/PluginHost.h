#pragma once

#include "host/OutModule.h"
#include "tests/support/AnsweringWindow.h"
#include "tests/windows/Capture.h"

#include <windows.h>

#include <atomic>
#include <string>
#include <utility>
#include <vector>

namespace velorine::test {

/// A player in small: loads the library, has a window that answers it, and feeds it PCM in real
/// time, 16 bits, stereo, 44.1 kHz.
class PluginHost {
public:
    /// Number in the registry that stands before the library is loaded.
    struct Setting {
        std::string section;
        std::string name;
        DWORD value;
    };

    /// With the processor and the windows off, and `settings`.
    explicit PluginHost(const std::vector<Setting>& settings = {});
    ~PluginHost();
    PluginHost(const PluginHost&) = delete;
    PluginHost& operator=(const PluginHost&) = delete;

    void open();

    /// Feeds all of `frames`, waiting for room.
    void write(const std::vector<Frame>& frames);

    /// Plays out. `goesOn`: what the window answers to the question whether another track follows.
    void close(bool goesOn);
    void quit();

    Out_Module& out() { return *module; }

    std::vector<std::intptr_t> questions() const; ///< that the window was asked

private:
    static std::intptr_t answer(VelorineHostWindow* window, unsigned message, std::uintptr_t wParam,
                                std::intptr_t lParam);

    HMODULE library;
    Out_Module* module = nullptr;
    VelorineHostWindow answers{};
    AnsweringWindow window;
    std::atomic<bool> goesOnNext{false};
    std::atomic<std::uint64_t> asked{0}; ///< a bit for each question of `known`
    bool running = false;
};

/// Writes a number below the module's root in the registry.
void writeSetting(const PluginHost::Setting& setting);

} // namespace velorine::test
