#include "tests/windows/PluginHost.h"

#include "config/KeyTable.h"
#include "config/win32/RegistryStore.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

namespace velorine::test {

namespace {

constexpr std::array<std::intptr_t, 5> known{104, 105, 125, 211, 400};
constexpr std::size_t framesPerWrite = 576;
constexpr DWORD betweenLooksMs = 5;

} // namespace

void writeSetting(const PluginHost::Setting& setting) {
    RegistryStore store;
    store.set(keyPath(settingsRoot, setting.section), setting.name, setting.value);
}

PluginHost::PluginHost(const std::vector<Setting>& settings)
    : library(nullptr), window((answers = {answer, this}, answers)) {
    writeSetting({"Eq", "enable", 0});
    writeSetting({"General", "showwnd", 0});
    writeSetting({"General", "beep", 0});
    std::for_each(settings.begin(), settings.end(), writeSetting);

    library = LoadLibraryA(VELORINE_LIBRARY);
    if (!library) throw std::runtime_error{"the library can't be loaded"};
    auto* const entry = reinterpret_cast<Out_Module* (*)()>(
        reinterpret_cast<void*>(GetProcAddress(library, "winampGetOutModule")));
    if (!entry) throw std::runtime_error{"the library has no entry"};
    module = entry();
    module->hMainWindow = static_cast<decltype(module->hMainWindow)>(window.handle());
    module->Init();
    running = true;
}

PluginHost::~PluginHost() {
    quit();
    FreeLibrary(library);
}

void PluginHost::open() {
    EXPECT_GE(module->Open(Capture::rate, 2, 16, 0, 0), 0);
}

void PluginHost::write(const std::vector<Frame>& frames) {
    for (std::size_t done = 0; done < frames.size();) {
        const std::size_t count = std::min(framesPerWrite, frames.size() - done);
        const auto bytes = static_cast<int>(count * sizeof(Frame));
        while (module->CanWrite() < bytes)
            Sleep(betweenLooksMs);
        std::vector<Frame> piece = part(frames, done, count);
        EXPECT_EQ(module->Write(reinterpret_cast<char*>(piece.data()), bytes), 0);
        done += count;
    }
}

void PluginHost::close(bool goesOn) {
    goesOnNext = goesOn;
    module->Close();
}

void PluginHost::quit() {
    if (std::exchange(running, false)) module->Quit();
}

std::vector<std::intptr_t> PluginHost::questions() const {
    std::vector<std::intptr_t> list;
    for (std::size_t i = 0; i < known.size(); ++i)
        if (asked.load() >> i & 1) list.push_back(known[i]);
    return list;
}

std::intptr_t PluginHost::answer(VelorineHostWindow* window, unsigned, std::uintptr_t,
                                 std::intptr_t lParam) {
    auto& host = *static_cast<PluginHost*>(window->user);
    const auto question = std::find(known.begin(), known.end(), lParam);
    if (question != known.end()) host.asked |= std::uint64_t{1} << (question - known.begin());
    static const char track[] = "Z:\\music\\song.flac";
    switch (lParam) {
    case 105:
        return 180;
    case 211:
        return reinterpret_cast<std::intptr_t>(track);
    case 400:
        return host.goesOnNext ? 1 : 0;
    default:
        return 0;
    }
}

} // namespace velorine::test
