#pragma once

#include "config/LayeredStore.h"
#include "config/UserSettings.h"
#include "host/ModuleOptions.h"
#include "player/RenderWindow.h"

#include <string_view>
#include <vector>

namespace velorine {

/// The settings as a run of the engine will find them: what is stored, with the presets of a start
/// over it and the values of the command line over both. Only reads what is stored.
class RunSettings {
public:
    /// @param user  settings of this machine; outlives this
    RunSettings(UserSettings& user, const std::vector<ModuleOptions::Setting>& overlay);

    bool flag(std::string_view section, std::string_view name);
    double number(std::string_view section, std::string_view name); ///< of a real setting

    /// All of them, for classes that exchange their settings.
    SettingsStore& store() { return values; }

    /// What the chain will do to place and length of what it plays.
    RenderChain chain();

private:
    std::uint32_t bits(std::string_view section, std::string_view name);

    CopyOnWriteStore values;
};

} // namespace velorine
