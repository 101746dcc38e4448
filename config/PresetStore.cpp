#include "config/PresetStore.h"

#include <algorithm>

namespace velorine {

namespace {
std::string presetKey(std::string_view name) {
    return keyPath(settingsRoot, presetSection(name));
}
} // namespace

bool isPresetName(std::string_view name) {
    constexpr std::size_t limit = 100;
    if (name.empty() || name.size() > limit) return false;
    if (name.front() == '.' || name.front() == ' ') return false;
    if (name.back() == '.' || name.back() == ' ') return false;
    return std::none_of(name.begin(), name.end(), [](char c) {
        const bool control = static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
        return control || std::string_view{"/\\:*?\"<>|"}.find(c) != std::string_view::npos;
    });
}

std::string presetSection(std::string_view name) {
    return std::string{"Presets\\"}.append(name);
}

std::vector<std::string> SubkeyPresets::names() {
    std::vector<std::string> names = store.subkeys(keyPath(settingsRoot, "Presets"));
    std::erase_if(names, [](const std::string& name) { return !isPresetName(name); });
    return names;
}

std::optional<PresetValues> SubkeyPresets::load(std::string_view name) {
    if (!isPresetName(name)) return std::nullopt;
    PresetValues values;
    for (const SettingsEntry& entry : store.values(presetKey(name)))
        if (const auto* number = std::get_if<std::uint32_t>(&entry.value))
            values.emplace_back(entry.name, *number);
    return values.empty() ? std::nullopt : std::optional{std::move(values)};
}

bool SubkeyPresets::save(std::string_view name, const PresetValues& values) {
    if (!isPresetName(name)) return false;
    const std::string key = presetKey(name);
    {
        const SettingsBatch batch{store};
        store.eraseKey(key);
        store.createKey(key);
        for (const auto& [value, bits] : values)
            store.set(key, value, bits);
    }
    return store.flush();
}

bool SubkeyPresets::remove(std::string_view name) {
    if (!load(name)) return false;
    store.eraseKey(presetKey(name));
    return true;
}

} // namespace velorine
