#pragma once

#include "config/PresetStore.h"

#include <string>
#include <string_view>

namespace velorine {

/// Saves the section "Eq" as it is read from `settings`, defaults included.
/// @return whether the name is a good one and the preset will outlive the process
bool savePreset(PresetStore& presets, std::string_view name, SettingsStore& settings);

/// Writes a preset over the section "Eq". What the preset doesn't name becomes the factory's, save
/// for `enable` and `magnitude`, which then stay as they are.
/// @return whether there is such a preset
bool loadPreset(PresetStore& presets, std::string_view name, SettingsStore& settings);

/// Name of the preset that each start loads; empty for none but the factory's.
std::string activePreset(SettingsStore& settings);
void setActivePreset(SettingsStore& settings, std::string_view name);

/// What each start does to the section "Eq", in one write: the factory preset, then the preset
/// `active`, if it isn't empty. `enable` and `magnitude` survive both where the user has them.
/// @return false when `active` names a preset that isn't there; the factory's stands then
bool applyStartPresets(SettingsStore& settings, PresetStore& presets, std::string_view active);

} // namespace velorine
