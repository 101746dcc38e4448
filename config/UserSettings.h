#pragma once

#include "config/PresetStore.h"
#include "config/SettingsCheck.h"
#include "config/SettingsStore.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace velorine {

/// Where this machine keeps the user's settings: the registry on Windows, a file elsewhere, and
/// memory where there is no folder for one.
struct UserSettings {
    std::unique_ptr<SettingsStore> store;
    std::unique_ptr<PresetStore> presets;
    std::string place; ///< path of the file or the key; empty: nothing outlives the process
};

/// Reads and writes nothing yet.
///
/// @param warn  told, in one line for the user, when the settings can't be read; from the thread
///              that reads or writes them. May be empty.
UserSettings openUserSettings(std::function<void(const std::string& text)> warn);

/// What is wrong with the settings that this machine keeps, in their order. Only reads.
std::vector<SettingsRemark> checkUserSettings();

} // namespace velorine
