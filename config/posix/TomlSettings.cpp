#include "config/posix/TomlSettings.h"

#include "config/KeyTable.h"
#include "config/SettingText.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace velorine {

namespace {

std::optional<SettingsValue> dwordFrom(long long number) {
    if (number < std::numeric_limits<std::int32_t>::min()) return std::nullopt;
    if (number > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
    return static_cast<std::uint32_t>(number);
}

std::optional<SettingsValue> floatFrom(const TomlValue& value) {
    if (value.kind == TomlValue::Kind::integer)
        return std::bit_cast<std::uint32_t>(static_cast<float>(value.integer));
    if (value.kind != TomlValue::Kind::real) return std::nullopt;
    if (const auto bits = parseFloat(value.content)) return *bits;
    return std::nullopt; // beyond the range of a single
}

bool isKnownSection(std::string_view section) {
    const auto keys = settingKeys();
    return std::any_of(keys.begin(), keys.end(),
                       [section](const SettingKey& key) { return key.section == section; });
}

} // namespace

std::optional<SettingsValue> settingFromToml(const TomlValue& value) {
    using Kind = TomlValue::Kind;
    const SettingKey* const key = findSetting(value.section, value.name);
    if (value.kind == Kind::text) return value.content;
    if (value.kind == Kind::other) return std::nullopt;
    if (key && key->kind == SettingKind::real) return floatFrom(value);
    if (value.kind == Kind::real) return key ? std::nullopt : floatFrom(value);
    if (value.kind == Kind::boolean && key && key->kind == SettingKind::integer)
        return std::nullopt;
    return dwordFrom(value.integer);
}

std::string tomlLiteral(std::string_view section, std::string_view name,
                        const SettingsValue& value) {
    if (const auto* const text = std::get_if<std::string>(&value)) return tomlString(*text);
    const auto bits = std::get<std::uint32_t>(value);
    const SettingKey* const key = findSetting(section, name);
    if (!key) return std::to_string(bits);
    if (key->kind == SettingKind::boolean && bits > 1) return std::to_string(bits);
    return printSetting(*key, value);
}

std::vector<SettingsRemark> checkTomlSettings(std::string_view text) {
    const auto parsed = readToml(text);
    if (const auto* const error = std::get_if<TomlError>(&parsed))
        return {{error->line, error->column, true, error->reason}};

    std::vector<SettingsRemark> remarks;
    for (const TomlValue& value : std::get<std::vector<TomlValue>>(parsed)) {
        const std::string name = value.section + "/" + value.name;
        const SettingKey* const key = findSetting(value.section, value.name);
        if (!key) {
            const bool known = isKnownSection(value.section);
            remarks.push_back({value.line, value.column, false,
                               known ? "there is no setting " + name
                                     : "there is no section " + value.section + " (" + name + ")"});
            continue;
        }
        const SettingsValue standard = key->defaultValue();
        const auto stored = settingFromToml(value);
        if (stored && stored->index() == standard.index()) continue;
        remarks.push_back(
            {value.line, value.column, true,
             name + " takes " + std::string{kindName(key->kind)} +
                 "; the default stands: " + tomlLiteral(key->section, key->name, standard)});
    }
    return remarks;
}

} // namespace velorine
