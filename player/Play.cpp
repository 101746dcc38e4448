#include "player/Play.h"

#include "player/Console.h"
#include "player/Interruption.h"
#include "player/Playback.h"

#include <chrono>

namespace velorine {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int idleMs = 10; ///< between two looks at what the module permits
constexpr auto statusPeriod = std::chrono::milliseconds{100};
constexpr auto settingsPeriod = std::chrono::seconds{1};

ModuleOptions optionsFor(const PlayRequest& request) {
    ModuleOptions options;
    options.overlay = request.settings;
    if (!request.device.empty())
        options.overlay.push_back({"General", "Audio Device", 0, request.device});
    options.useSound = !request.null;
    return options;
}

/// Says so once when the device that was asked for isn't the one that plays.
class DeviceCheck {
public:
    DeviceCheck(std::string wantedDevice, Console& messages)
        : wanted(std::move(wantedDevice)), console(messages),
          done(wanted.empty() || wanted == "None" || wanted == "Disable") {}

    void look() {
        if (done) return;
        const ModuleStatus module = moduleStatus();
        if (!module.deviceOpen) return;
        done = true;
        if (module.device == wanted && !module.nullTarget) return;
        console.say("the device '" + wanted + "' cannot be had; playing on " +
                    (module.nullTarget       ? "the null target"
                     : module.device.empty() ? "the default device"
                                             : "'" + module.device + "'"));
    }

private:
    const std::string wanted;
    Console& console;
    bool done;
};

/// Until the list has been heard, or a key or a signal ends it.
void playAll(Playback& playback, DeviceCheck device, Console& console) {
    Keyboard keyboard; // gives the terminal back before the module plays out its fade
    Clock::time_point shown{};
    Clock::time_point refreshed = Clock::now();
    while (!interruption::requested() && !playback.isOver()) {
        const bool moved = playback.feed();
        if (const auto key = keyboard.wait(moved ? 0 : idleMs)) playback.obey(*key);
        device.look();
        if (Clock::now() - refreshed >= settingsPeriod) {
            refreshed = Clock::now();
            refreshSettings(); // 'velorine settings' and 'presets' are heard at once
        }
        if (!console.isTerminal() || Clock::now() - shown < statusPeriod) continue;
        shown = Clock::now();
        console.showLive(statusLine(playback.state(), console.columns(), console.hasColour()));
    }
    console.clearLive();
}

} // namespace

ExitCode play(const PlayRequest& request, Console& console) {
    interruption::watch();
    ModuleHost host{optionsFor(request), request.files};
    Playback playback{host, console, request.files};
    if (!playback.begin()) return ExitCode::failed;
    playAll(playback, DeviceCheck{request.null ? std::string{} : request.device, console}, console);
    playback.finish();
    if (interruption::requested()) return ExitCode::interrupted;
    return playback.failures() > 0 ? ExitCode::someFailed : ExitCode::ok;
}

} // namespace velorine
