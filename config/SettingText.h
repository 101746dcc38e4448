#pragma once

#include "config/KeyTable.h"

#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace velorine {

/// Settings as a person writes them: true and false, whole numbers, decimal numbers, texts.

/// Shortest decimal that reads back to the same bits; with a point or an exponent, or else one of
/// "inf", "-inf", "nan" and "-nan". Every nan becomes the quiet one of its sign.
std::string printFloat(std::uint32_t bits);

/// Decimal or integer, "inf" and "nan", with a sign if wanted. Nothing for what isn't one, or lies
/// beyond the range of a single.
std::optional<std::uint32_t> parseFloat(std::string_view text);

/// What is stored under `key`, for a person. A value of another type than the key's prints as what
/// it is.
std::string printSetting(const SettingKey& key, const SettingsValue& value);

/// Reverse of `printSetting`; bools may also be written 1, 0, yes, no, on and off.
/// @return nothing when the text isn't of the key's kind
std::optional<SettingsValue> parseSetting(const SettingKey& key, std::string_view text);

/// A value for a setting.
struct SettingAssignment {
    const SettingKey* key = nullptr;
    SettingsValue value;
};

/// Parses "SECTION/KEY=VALUE".
/// @return the assignment, or a text for the user that says what is wrong with it
std::variant<SettingAssignment, std::string> parseAssignment(std::string_view text);

/// What a read of the setting yields: the stored value, or the default where the store has none of
/// the key's type.
SettingsValue settingIn(SettingsStore& store, const SettingKey& key);

} // namespace velorine
