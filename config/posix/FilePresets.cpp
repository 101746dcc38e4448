#include "config/posix/FilePresets.h"

#include "config/posix/TomlStore.h"

#include <algorithm>

namespace velorine {

namespace {

constexpr std::string_view extension = ".toml";

std::string eqKey() {
    return keyPath(settingsRoot, "Eq");
}

/// One lock serves all files, so that no preset leaves a lock file of its own behind.
TomlStore::Options sharedLock(const std::filesystem::path& folder) {
    TomlStore::Options options;
    options.lockFile = folder / ".lock";
    return options;
}

} // namespace

std::vector<std::string> FilePresets::names() {
    std::vector<std::string> names;
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator{folder, none}) {
        std::string name = entry.path().filename().string();
        if (!name.ends_with(extension)) continue;
        name.resize(name.size() - extension.size());
        if (isPresetName(name)) names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<PresetValues> FilePresets::load(std::string_view name) {
    std::error_code none;
    if (!isPresetName(name) || !std::filesystem::exists(fileOf(name), none)) return std::nullopt;
    TomlStore store{fileOf(name), sharedLock(folder)};
    PresetValues values;
    for (const SettingsEntry& entry : store.values(eqKey()))
        if (const auto* const number = std::get_if<std::uint32_t>(&entry.value))
            values.emplace_back(entry.name, *number);
    return values.empty() ? std::nullopt : std::optional{std::move(values)};
}

bool FilePresets::save(std::string_view name, const PresetValues& values) {
    if (!isPresetName(name)) return false;
    TomlStore store{fileOf(name), sharedLock(folder)};
    {
        const SettingsBatch batch{store};
        store.eraseKey(eqKey());
        for (const auto& [value, bits] : values)
            store.set(eqKey(), value, bits);
    }
    return store.flush();
}

bool FilePresets::remove(std::string_view name) {
    std::error_code refused;
    return isPresetName(name) && std::filesystem::remove(fileOf(name), refused);
}

std::filesystem::path FilePresets::fileOf(std::string_view name) const {
    return folder / std::string{name}.append(extension);
}

} // namespace velorine
