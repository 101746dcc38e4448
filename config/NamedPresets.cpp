#include "config/NamedPresets.h"

#include "config/EmbeddedPreset.h"
#include "config/KeyTable.h"

namespace velorine {

namespace {

constexpr std::string_view activeName = "Active Preset";

std::string eqKey() {
    return keyPath(settingsRoot, "Eq");
}

std::string generalKey() {
    return keyPath(settingsRoot, "General");
}

bool ownedByUser(std::string_view name) {
    return name == "enable" || name == "magnitude";
}

std::optional<std::uint32_t> valueIn(const PresetValues& values, std::string_view name) {
    for (const auto& [known, bits] : values)
        if (known == name) return bits;
    return std::nullopt;
}

} // namespace

bool savePreset(PresetStore& presets, std::string_view name, SettingsStore& settings) {
    PresetValues values;
    for (const SettingKey& key : settingKeys())
        if (key.section == "Eq")
            values.emplace_back(key.name, settings.dword(eqKey(), key.name).value_or(key.bits));
    return presets.save(name, values);
}

bool loadPreset(PresetStore& presets, std::string_view name, SettingsStore& settings) {
    const auto values = presets.load(name);
    if (!values) return false;
    const SettingsBatch batch{settings};
    for (const SettingKey& key : settingKeys()) {
        if (key.section != "Eq") continue;
        const auto saved = valueIn(*values, key.name);
        if (saved || !ownedByUser(key.name))
            settings.set(eqKey(), key.name, saved.value_or(key.bits));
    }
    return true;
}

std::string activePreset(SettingsStore& settings) {
    return settings.text(generalKey(), activeName).value_or(std::string{});
}

void setActivePreset(SettingsStore& settings, std::string_view name) {
    settings.set(generalKey(), activeName, std::string{name});
}

bool applyStartPresets(SettingsStore& settings, PresetStore& presets, std::string_view active) {
    const auto values = active.empty() ? PresetValues{} : presets.load(active);

    const SettingsBatch batch{settings};
    PresetValues chosen;
    for (const auto& [name, bits] : values.value_or(PresetValues{})) {
        const bool survives = ownedByUser(name) && settings.exists(eqKey(), name);
        if (findSetting("Eq", name) && !survives) chosen.emplace_back(name, bits);
    }
    applyPreset(settings);
    for (const auto& [name, bits] : chosen)
        settings.set(eqKey(), name, bits);
    return values.has_value();
}

} // namespace velorine
