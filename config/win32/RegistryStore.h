#pragma once

#include "config/SettingsStore.h"

namespace velorine {

/// Settings in the registry, below HKEY_CURRENT_USER. Any thread.
class RegistryStore final : public SettingsStore {
public:
    std::optional<SettingsValue> value(std::string_view key, std::string_view name) override;
    bool exists(std::string_view key, std::string_view name) override;
    void set(std::string_view key, std::string_view name, const SettingsValue& value) override;
    void erase(std::string_view key, std::string_view name) override;
    std::vector<SettingsEntry> values(std::string_view key) override;
    std::vector<std::string> subkeys(std::string_view key) override;
    void createKey(std::string_view key) override;
    void eraseKey(std::string_view key) override;
};

} // namespace velorine
