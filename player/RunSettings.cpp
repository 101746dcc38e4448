#include "player/RunSettings.h"

#include "config/NamedPresets.h"
#include "config/SettingText.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cmath>

namespace velorine {

RunSettings::RunSettings(UserSettings& user, const std::vector<ModuleOptions::Setting>& overlay)
    : values(*user.store) {
    applyStartPresets(values, *user.presets, activePreset(values));
    for (const ModuleOptions::Setting& setting : overlay) {
        const SettingsValue value =
            setting.text ? SettingsValue{*setting.text} : SettingsValue{setting.dword};
        values.set(keyPath(settingsRoot, setting.section), setting.name, value);
    }
}

std::uint32_t RunSettings::bits(std::string_view section, std::string_view name) {
    const SettingKey* const key = findSetting(section, name);
    assert(key && key->kind != SettingKind::text);
    return std::get<std::uint32_t>(settingIn(values, *key));
}

bool RunSettings::flag(std::string_view section, std::string_view name) {
    return bits(section, name) != 0;
}

double RunSettings::number(std::string_view section, std::string_view name) {
    return static_cast<double>(std::bit_cast<float>(bits(section, name)));
}

RenderChain RunSettings::chain() {
    RenderChain chain;
    chain.kestrix = ChainStages::kestrix && flag("Eq", "enable");
    if (ChainStages::resampler && flag("Resample", "enable")) {
        chain.outRate = static_cast<int>(std::lround(std::max(number("Resample", "srate"), 0.0)));
        chain.speed = number("Resample", "speed");
    }
    return chain;
}

} // namespace velorine
