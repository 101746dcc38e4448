#pragma once

#include "config/MemoryStore.h"
#include "host/ModuleOptions.h"
#include "host/OutModule.h"
#include "tests/support/Heard.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace velorine::test {

/// A host in real time: plays through the module's record alone, onto the machine's sound system.
/// Each frame of its programme is known by its value, as 32-bit samples.
class LiveHost {
public:
    struct Setup {
        std::string device; ///< by description; empty: the default one
        bool fadeOnSeek = true;
        bool fadeOnStop = true;
    };

    explicit LiveHost(const Setup& setup);
    ~LiveHost();
    LiveHost(const LiveHost&) = delete;
    LiveHost& operator=(const LiveHost&) = delete;

    void open(int rate, int channels, int bits);
    void close(bool goesOn);

    /// Writes all of `bytes` as `CanWrite` permits.
    void write(const void* bytes, std::size_t count);

    // -- A programme of known frames: 48 kHz, stereo, 32 bits ------------------------------------

    void begin(); ///< a track, and a segment
    void writeMs(int ms);
    void seek(int ms); ///< and begins a segment

    /// Writes on until `done` is true. @return false if it isn't for half a minute
    bool writeUntil(const std::function<bool()>& done);

    /// Waits until `GetOutputTime` has come to what was written, less `marginMs`.
    bool reachesEnd(int marginMs = 0);

    void quit() { out.Quit(); }

    Out_Module& out;
    std::vector<Segment> segments;

private:
    static std::intptr_t answer(VelorineHostWindow* window, unsigned message, std::uintptr_t wParam,
                                std::intptr_t lParam);
    void beginSegment();

    MemoryStore store;
    VelorineHostWindow window{};
    bool answerGoesOn = false;
    int frameBytes = 8;
};

} // namespace velorine::test
