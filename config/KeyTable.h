#pragma once

#include "config/SettingsStore.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace velorine {

enum class SettingKind { boolean, integer, real, text };

/// One setting: where it stands, what it holds, and what it is good for.
struct SettingKey {
    std::string section;
    std::string name;
    SettingKind kind = SettingKind::boolean;
    std::uint32_t bits = 0; ///< the default, as stored; a text's is empty
    std::string meaning;    ///< for a person, with the unit

    SettingsValue defaultValue() const;
    std::string key() const { return keyPath(settingsRoot, section); }
};

/// All settings, section by section and in the order of their exchange. The defaults of "Eq" are
/// the factory tuning, bit by bit. Stays valid; any thread.
std::span<const SettingKey> settingKeys();

/// Null when there is no such setting.
const SettingKey* findSetting(std::string_view section, std::string_view name);

/// By "Section/Name".
const SettingKey* findSetting(std::string_view sectionAndName);

/// "true or false", "a whole number", and so on, for messages.
std::string_view kindName(SettingKind kind);

} // namespace velorine
