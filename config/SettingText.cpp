#include "config/SettingText.h"

#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <limits>

namespace velorine {

namespace {

template <typename T>
std::optional<T> parseNumber(std::string_view text) {
    if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
    T value{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || stop != end) return std::nullopt;
    return value;
}

std::optional<bool> parseBool(std::string_view text) {
    for (const std::string_view yes : {"true", "1", "yes", "on"})
        if (text == yes) return true;
    for (const std::string_view no : {"false", "0", "no", "off"})
        if (text == no) return false;
    return std::nullopt;
}

} // namespace

std::string printFloat(std::uint32_t bits) {
    const auto value = std::bit_cast<float>(bits);
    if (std::isnan(value)) return std::signbit(value) ? "-nan" : "nan";
    std::array<char, 32> digits{};
    const auto written = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    std::string text{digits.data(), written.ptr};
    if (std::isfinite(value) && text.find_first_of(".e") == std::string::npos) text += ".0";
    return text;
}

std::optional<std::uint32_t> parseFloat(std::string_view text) {
    if (text.find('(') != std::string_view::npos) return std::nullopt; // a nan with a payload
    auto value = parseNumber<float>(text);
    if (!value) {
        const auto wide = parseNumber<double>(text);
        if (!wide || std::abs(*wide) > 1.0) return std::nullopt;
        value = static_cast<float>(*wide); // below the smallest single
    }
    if (!std::isnan(*value)) return std::bit_cast<std::uint32_t>(*value);
    const float quiet = std::numeric_limits<float>::quiet_NaN();
    return std::bit_cast<std::uint32_t>(std::copysign(quiet, text.starts_with('-') ? -1.0F : 1.0F));
}

std::string printSetting(const SettingKey& key, const SettingsValue& value) {
    if (const auto* text = std::get_if<std::string>(&value)) return *text;
    const auto bits = std::get<std::uint32_t>(value);
    switch (key.kind) {
    case SettingKind::boolean:
        return bits != 0 ? "true" : "false";
    case SettingKind::integer:
        return std::to_string(static_cast<std::int32_t>(bits));
    case SettingKind::real:
        return printFloat(bits);
    case SettingKind::text:
        break;
    }
    return std::to_string(bits);
}

std::optional<SettingsValue> parseSetting(const SettingKey& key, std::string_view text) {
    switch (key.kind) {
    case SettingKind::boolean:
        if (const auto on = parseBool(text)) return *on ? 1U : 0U;
        return std::nullopt;
    case SettingKind::integer:
        if (const auto number = parseNumber<std::int32_t>(text))
            return static_cast<std::uint32_t>(*number);
        return std::nullopt;
    case SettingKind::real:
        if (const auto bits = parseFloat(text)) return *bits;
        return std::nullopt;
    case SettingKind::text:
        break;
    }
    return std::string{text};
}

std::variant<SettingAssignment, std::string> parseAssignment(std::string_view text) {
    const std::string written{text};
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos)
        return "'" + written + "' has no value: write SECTION/KEY=VALUE";
    const std::string_view name = text.substr(0, equals);
    const SettingKey* const key = findSetting(name);
    if (!key)
        return "there is no setting '" + std::string{name} +
               "'; 'velorine settings list' names all";
    const std::string_view value = text.substr(equals + 1);
    const auto parsed = parseSetting(*key, value);
    if (!parsed)
        return std::string{name} + " takes " + std::string{kindName(key->kind)} + ", not '" +
               std::string{value} + "'";
    return SettingAssignment{key, *parsed};
}

SettingsValue settingIn(SettingsStore& store, const SettingKey& key) {
    const auto stored = store.value(key.key(), key.name);
    const SettingsValue standard = key.defaultValue();
    return stored && stored->index() == standard.index() ? *stored : standard;
}

} // namespace velorine
