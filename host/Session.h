#pragma once

#include "config/LayeredStore.h"
#include "config/UserSettings.h"
#include "foundation/SystemClock.h"
#include "host/BackgroundThread.h"
#include "host/FxEngine.h"
#include "host/HalfTrackComparison.h"
#include "host/HostFeed.h"
#include "host/HostTimeLine.h"
#include "host/ModuleOptions.h"
#include "host/TrackNaming.h"
#include "host/Transport.h"
#include "output/SoundSystem.h"

#include <memory>
#include <optional>
#include <vector>

namespace velorine {

class HostStream;
class HostWindow;

/// Everything that lives from the host's `Init` to its `Quit`.
class Session {
public:
    Session(HostStream& hostStream, HostWindow& hostWindow, const ModuleOptions& moduleOptions);

    /// Steps of `Init`: preset, settings, engine, windows, background thread.
    void begin();

    /// Steps of `Quit`: lets the output play out for at most 5 s, saves, and stops everything.
    void end();

    /// The host asks for our settings: opens those of the DSP plug-in, if there is one.
    void configure();

    ModuleStatus status();

    /// As `changeSettings` and `refreshSettings` of the module.
    void changeSettings(const std::vector<ModuleOptions::Setting>& settings);
    bool refreshSettings();

private:
    void exchangeOwnSettings(RegistryNode& node);
    void applyRecording();
    void overlaySettings(const std::vector<ModuleOptions::Setting>& settings);
    void applySettings();
    std::vector<std::optional<SettingsValue>> storedSettings();

    HostStream& stream;
    HostWindow& window;
    const ModuleOptions options;

    SystemClock clock;
    UserSettings userSettings; ///< unless the options bring a store
    CopyOnWriteStore unsaved;  ///< takes the writes of a run that stores nothing
    SettingsStore& store;      ///< what is saved to
    OverlayStore overlay;      ///< what is read
    std::vector<std::optional<SettingsValue>> known; ///< the stored values last taken over

    std::unique_ptr<SoundSystem> ownSound; ///< unless the options bring one, or want none
    SoundSystem* const sound;              ///< what is played on; null: the null target
    FxEngine engine;

public:
    HostTimeLine timeLine;
    Transport transport;

private:
    TrackNaming naming;
    HalfTrackComparison comparison;

public:
    HostFeed feed;

private:
    BackgroundThread background;
    bool showWindows = true;  ///< "showwnd"
    bool showSpectrum = true; ///< "Show Spectrum"
};

} // namespace velorine
