#pragma once

#include "config/SettingsCheck.h"
#include "config/SettingsStore.h"
#include "config/posix/TomlText.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velorine {

/// Settings as TOML has them. The key table tells which dwords are bools and floats; unknown ones
/// are whole numbers.

/// A whole number stands for a float or a bool, too. Nothing for what is no setting's type.
std::optional<SettingsValue> settingFromToml(const TomlValue& value);

std::string tomlLiteral(std::string_view section, std::string_view name,
                        const SettingsValue& value);

/// What is wrong with a settings file: why it is no TOML, values of a wrong type, which leave the
/// default, and such as no setting has.
std::vector<SettingsRemark> checkTomlSettings(std::string_view text);

} // namespace velorine
