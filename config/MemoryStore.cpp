#include "config/MemoryStore.h"

namespace velorine {

std::optional<SettingsValue> MemoryStore::value(std::string_view key, std::string_view name) {
    const Lock::Scope guard{lock};
    const auto values = keys.find(key);
    if (values == keys.end()) return std::nullopt;
    const auto found = values->second.find(name);
    return found == values->second.end() ? std::nullopt : std::optional{found->second};
}

void MemoryStore::set(std::string_view key, std::string_view name, const SettingsValue& value) {
    const Lock::Scope guard{lock};
    keys[std::string{key}].insert_or_assign(std::string{name}, value);
}

void MemoryStore::erase(std::string_view key, std::string_view name) {
    const Lock::Scope guard{lock};
    const auto values = keys.find(key);
    if (values == keys.end()) return;
    const auto found = values->second.find(name);
    if (found != values->second.end()) values->second.erase(found);
    if (values->second.empty()) keys.erase(values);
}

std::vector<SettingsEntry> MemoryStore::values(std::string_view key) {
    const Lock::Scope guard{lock};
    std::vector<SettingsEntry> entries;
    const auto values = keys.find(key);
    if (values == keys.end()) return entries;
    for (const auto& [name, value] : values->second)
        entries.push_back({name, value});
    return entries;
}

std::vector<std::string> MemoryStore::subkeys(std::string_view key) {
    const Lock::Scope guard{lock};
    std::vector<std::string> paths;
    for (const auto& [path, values] : keys)
        paths.push_back(path);
    return namesBelow(key, paths);
}

void MemoryStore::eraseKey(std::string_view key) {
    const Lock::Scope guard{lock};
    const auto values = keys.find(key);
    if (values != keys.end()) keys.erase(values);
}

} // namespace velorine
