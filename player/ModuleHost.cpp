#include "player/ModuleHost.h"

#include "host/Module.h"

#include <algorithm>

namespace velorine {

namespace {

constexpr unsigned windowUser = VELORINE_WM_USER;

/// Messages of the module to its host.
enum Message : std::intptr_t {
    trackLength = 105,
    listPosition = 125,
    playlistFile = 211,
    goesOnToNext = 400,
};

} // namespace

ModuleHost::ModuleHost(const ModuleOptions& options, const std::vector<std::string>& playlist)
    : out(*winampGetOutModule()), names(playlist) {
    setModuleOptions(options);
    window.send = answer;
    window.user = this;
    out.hMainWindow = &window;
    out.Init();
}

ModuleHost::~ModuleHost() {
    out.Quit();
    out.hMainWindow = nullptr;
}

std::intptr_t ModuleHost::answer(VelorineHostWindow* window, unsigned message,
                                 std::uintptr_t wParam, std::intptr_t lParam) {
    const auto& host = *static_cast<const ModuleHost*>(window->user);
    if (message != windowUser) return 0;
    switch (lParam) {
    case trackLength:
        return wParam == 1 ? host.trackSeconds.load() : 0;
    case listPosition:
        return static_cast<std::intptr_t>(host.track.load());
    case playlistFile:
        return wParam < host.names.size()
                   ? reinterpret_cast<std::intptr_t>(host.names[wParam].c_str())
                   : 0;
    case goesOnToNext:
        return host.answerGoesOn.load() ? 1 : 0;
    default:
        return 0;
    }
}

void ModuleHost::open(std::size_t index, const HostFormat& format, std::int64_t lengthMs) {
    track.store(index);
    trackSeconds.store(static_cast<int>(lengthMs / 1000));
    frameBytes = std::max(format.bytesPerFrame(), 1);
    out.Open(format.rate, format.channels, format.bits, 0, 0);
}

void ModuleHost::close(bool goesOn) {
    answerGoesOn.store(goesOn);
    out.Close();
}

std::size_t ModuleHost::permitted() {
    const int bytes = out.CanWrite();
    return bytes > 0 ? static_cast<std::size_t>(bytes / frameBytes * frameBytes) : 0;
}

void ModuleHost::write(std::span<const std::byte> frames) {
    // The published record takes a plain pointer; the module only reads.
    auto* const data = const_cast<char*>(reinterpret_cast<const char*>(frames.data()));
    out.Write(data, static_cast<int>(frames.size()));
}

} // namespace velorine
