#include "config/LayeredStore.h"

#include <algorithm>

namespace velorine {

std::optional<std::optional<SettingsValue>> LayeredStore::inLayer(std::string_view key,
                                                                  std::string_view name) {
    const Lock::Scope guard{lock};
    const auto names = layer.find(key);
    if (names == layer.end()) return std::nullopt;
    const auto found = names->second.find(name);
    if (found == names->second.end()) return std::nullopt;
    return found->second;
}

std::optional<SettingsValue> LayeredStore::value(std::string_view key, std::string_view name) {
    const auto own = inLayer(key, name);
    return own ? *own : below.value(key, name);
}

bool LayeredStore::exists(std::string_view key, std::string_view name) {
    const auto own = inLayer(key, name);
    return own ? own->has_value() : below.exists(key, name);
}

std::vector<SettingsEntry> LayeredStore::values(std::string_view key) {
    std::vector<SettingsEntry> entries = below.values(key);
    const Lock::Scope guard{lock};
    const auto names = layer.find(key);
    if (names == layer.end()) return entries;
    for (const auto& own : names->second) {
        const auto shown =
            std::find_if(entries.begin(), entries.end(),
                         [&own](const SettingsEntry& entry) { return entry.name == own.first; });
        if (shown != entries.end() && own.second)
            shown->value = *own.second;
        else if (shown != entries.end())
            entries.erase(shown);
        else if (own.second)
            entries.push_back({own.first, *own.second});
    }
    return entries;
}

std::vector<std::string> LayeredStore::subkeys(std::string_view key) {
    std::vector<std::string> paths;
    {
        const Lock::Scope guard{lock};
        for (const auto& [path, names] : layer)
            paths.push_back(path);
    }
    for (const std::string& name : below.subkeys(key))
        paths.push_back(keyPath(key, name));
    std::vector<std::string> names = namesBelow(key, paths);
    // A key that the layer emptied is gone: keys stand for as long as they hold something.
    std::erase_if(names, [&](const std::string& name) {
        const std::string path = keyPath(key, name);
        return values(path).empty() && subkeys(path).empty();
    });
    return names;
}

void LayeredStore::putInLayer(std::string_view key, std::string_view name,
                              std::optional<SettingsValue> value) {
    const Lock::Scope guard{lock};
    layer[std::string{key}].insert_or_assign(std::string{name}, std::move(value));
}

void LayeredStore::dropFromLayer(std::string_view key, std::string_view name) {
    const Lock::Scope guard{lock};
    const auto names = layer.find(key);
    if (names == layer.end()) return;
    const auto found = names->second.find(name);
    if (found != names->second.end()) names->second.erase(found);
}

bool LayeredStore::isInLayer(std::string_view key, std::string_view name) {
    return inLayer(key, name).has_value();
}

void OverlayStore::set(std::string_view key, std::string_view name, const SettingsValue& value) {
    if (!isInLayer(key, name)) below.set(key, name, value);
}

void OverlayStore::erase(std::string_view key, std::string_view name) {
    if (!isInLayer(key, name)) below.erase(key, name);
}

void CopyOnWriteStore::eraseKey(std::string_view key) {
    for (const SettingsEntry& entry : values(key))
        erase(key, entry.name);
}

} // namespace velorine
