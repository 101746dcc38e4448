#pragma once

#include "config/MemoryStore.h"
#include "host/ModuleOptions.h"
#include "host/OutModule.h"
#include "tests/support/AnsweringWindow.h"
#include "tests/support/TestClock.h"
#include "tests/support/TestSound.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace velorine::test {

/// A host on the test clock: plays through the module's record alone, onto a test device.
class TestHost {
public:
    /// Settings that a test changes; all others are the module's own, with Kestrix left out of the
    /// way unless a test wants it.
    struct Setup {
        TestClock::Mode mode = TestClock::Mode::serial;
        std::uint32_t seed = 0;
        bool withSound = true;
        bool beep = false;
        bool fadeOnSeek = true;
        bool fadeOnStop = true;
        bool kestrix = false;
        std::vector<ModuleOptions::Setting> settings;
        ModuleOptions options; ///< what else is wanted; store, sound and overlay are set here
    };

    explicit TestHost(const Setup& setup);
    TestHost() : TestHost(Setup{}) {}
    ~TestHost();
    TestHost(const TestHost&) = delete;
    TestHost& operator=(const TestHost&) = delete;

    void open(int rate, int channels, int bits);

    /// Writes all of `samples` in pieces as `CanWrite` permits, letting time pass where it doesn't.
    template <typename Sample>
    void write(const std::vector<Sample>& samples) {
        writeBytes(reinterpret_cast<const char*>(samples.data()), samples.size() * sizeof(Sample));
    }
    void writeBytes(const char* bytes, std::size_t count);

    /// One piece if `CanWrite` permits it. @return bytes written
    std::size_t writeOnce(const char* bytes, std::size_t count);

    /// Closes the track; `goesOn` is what the window answers.
    void close(bool goesOn);

    void advance(int ms) { clock.advance(ms); }

    /// Lets time pass until all that was written has been heard, or `ms` have passed.
    bool playOut(int ms = 20'000);

    TestClock clock;
    TestSound sound;
    MemoryStore store;
    Out_Module& out;

    bool answerGoesOn = false;
    int trackSeconds = 0;
    std::string playlistFile;
    std::vector<std::intptr_t> messages; ///< lParam of each that came

private:
    static std::intptr_t answer(VelorineHostWindow* window, unsigned message, std::uintptr_t wParam,
                                std::intptr_t lParam);

    VelorineHostWindow window{};
    std::unique_ptr<AnsweringWindow> realWindow;
    int frameBytes = 4;
};

/// The bits of a float, as settings hold them.
std::uint32_t bitsOf(float value);

} // namespace velorine::test
