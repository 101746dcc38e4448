#include "tests/support/TestHost.h"

#include "host/Module.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>

namespace velorine::test {

namespace {
// Made before any test clock is, so that the module's own locks are the machine's.
Out_Module& module = *winampGetOutModule();
} // namespace

std::uint32_t bitsOf(float value) {
    return std::bit_cast<std::uint32_t>(value);
}

TestHost::TestHost(const Setup& setup) : clock(setup.mode, setup.seed), sound(clock), out(module) {
    ModuleOptions options = setup.options;
    options.store = &store;
    options.sound = setup.withSound ? &sound : nullptr;
    options.useSound = setup.withSound;
    const auto put = [&options](const char* section, const char* name, bool value) {
        options.overlay.push_back({section, name, value ? 1u : 0u, {}});
    };
    put("General", "beep", setup.beep);
    put("General", "Fade on seek", setup.fadeOnSeek);
    put("General", "Fade on stop", setup.fadeOnStop);
    put("Eq", "enable", setup.kestrix);
    options.overlay.insert(options.overlay.end(), setup.settings.begin(), setup.settings.end());
    setModuleOptions(options);

    window.send = answer;
    window.user = this;
    realWindow = std::make_unique<AnsweringWindow>(window);
    out.hMainWindow = realWindow->handle();
    out.Init();
}

TestHost::~TestHost() {
    out.Quit();
    out.hMainWindow = nullptr;
    setModuleOptions({});
}

std::intptr_t TestHost::answer(VelorineHostWindow* window, unsigned, std::uintptr_t,
                               std::intptr_t lParam) {
    auto& host = *static_cast<TestHost*>(window->user);
    host.messages.push_back(lParam);
    switch (lParam) {
    case 105:
        return host.trackSeconds;
    case 211:
        return reinterpret_cast<std::intptr_t>(host.playlistFile.c_str());
    case 400:
        return host.answerGoesOn ? 1 : 0;
    default:
        return 0;
    }
}

void TestHost::open(int rate, int channels, int bits) {
    frameBytes = std::max(channels * bits / 8, 1);
    if (bits == 28) frameBytes = channels * 4;
    out.Open(rate, channels, bits, 0, 0);
}

std::size_t TestHost::writeOnce(const char* bytes, std::size_t count) {
    const auto permitted = static_cast<std::size_t>(out.CanWrite());
    const std::size_t whole =
        permitted / static_cast<std::size_t>(frameBytes) * static_cast<std::size_t>(frameBytes);
    const std::size_t piece = std::min(whole, count);
    if (piece > 0) out.Write(const_cast<char*>(bytes), static_cast<int>(piece));
    return piece;
}

void TestHost::writeBytes(const char* bytes, std::size_t count) {
    for (int refusedMs = 0; count > 0;) {
        const std::size_t written = writeOnce(bytes, count);
        bytes += written;
        count -= written;
        refusedMs = written > 0 ? 0 : refusedMs + 10;
        if (written == 0) clock.advance(10);
        if (refusedMs > 30'000) {
            ADD_FAILURE() << "no permission to write for 30 s";
            return;
        }
    }
}

void TestHost::close(bool goesOn) {
    answerGoesOn = goesOn;
    out.Close();
}

bool TestHost::playOut(int ms) {
    for (int passed = 0; passed < ms; passed += 10) {
        if (out.GetOutputTime() >= out.GetWrittenTime()) return true;
        clock.advance(10);
    }
    return false;
}

} // namespace velorine::test
