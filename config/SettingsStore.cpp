#include "config/SettingsStore.h"

#include <algorithm>

namespace velorine {

std::string keyPath(std::string_view path, std::string_view section) {
    while (path.ends_with('\\'))
        path.remove_suffix(1);
    while (section.ends_with('\\'))
        section.remove_suffix(1);
    std::string key{path};
    if (!section.empty()) key.append("\\").append(section);
    return key;
}

std::optional<std::string> sectionOf(std::string_view key) {
    if (!key.starts_with(settingsRoot)) return std::nullopt;
    key.remove_prefix(settingsRoot.size());
    if (key.empty()) return std::string{};
    if (key.front() != '\\') return std::nullopt;
    return std::string{key.substr(1)};
}

std::optional<std::uint32_t> SettingsStore::dword(std::string_view key, std::string_view name) {
    const auto found = value(key, name);
    const auto* number = found ? std::get_if<std::uint32_t>(&*found) : nullptr;
    return number ? std::optional{*number} : std::nullopt;
}

std::optional<std::string> SettingsStore::text(std::string_view key, std::string_view name) {
    const auto found = value(key, name);
    const auto* text = found ? std::get_if<std::string>(&*found) : nullptr;
    return text ? std::optional{*text} : std::nullopt;
}

std::vector<std::string> namesBelow(std::string_view key, const std::vector<std::string>& paths) {
    std::vector<std::string> names;
    for (std::string_view path : paths) {
        if (!path.starts_with(key)) continue;
        path.remove_prefix(key.size());
        if (!path.starts_with('\\')) continue;
        path.remove_prefix(1);
        path = path.substr(0, path.find('\\'));
        names.emplace_back(path);
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

} // namespace velorine
