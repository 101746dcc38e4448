#include "config/RegistryText.h"

#include "config/NarrowText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <map>
#include <optional>

namespace velorine {

namespace {

constexpr std::string_view userKey = "HKEY_CURRENT_USER\\";
constexpr std::string_view presetsPrefix = "Presets\\";

std::string quoted(std::string_view text) {
    std::string result{"\""};
    for (const char c : text) {
        if (c == '"' || c == '\\') result += '\\';
        result += c;
    }
    return result + '"';
}

/// A text with line breaks or other controls in it, as the bytes that a registry keeps of it.
std::string hexText(std::string_view text) {
    std::string line{"hex(1):"};
    const auto append = [&line](unsigned byte) {
        std::array<char, 8> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x,", byte);
        line += digits.data();
    };
    for (const char16_t unit : utf16FromNarrow(text) + u'\0') {
        append(unit & 0xFFU);
        append(static_cast<unsigned>(unit) >> 8);
    }
    line.pop_back();
    return line;
}

bool hasControls(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20; });
}

std::string lineFor(std::string_view name, const SettingsValue& value) {
    const std::string line = quoted(name) + '=';
    if (const auto* const text = std::get_if<std::string>(&value))
        return line + (hasControls(*text) ? hexText(*text) : quoted(*text));
    std::array<char, 16> digits{};
    std::snprintf(digits.data(), digits.size(), "%08x",
                  static_cast<unsigned>(std::get<std::uint32_t>(value)));
    return line + "dword:" + digits.data();
}

std::string headerOf(std::string_view section) {
    return std::string{"["}.append(userKey) + keyPath(settingsRoot, section) + "]\r\n";
}

void appendKeys(std::string& text, SettingsStore& settings, const std::string& section) {
    const std::string key = keyPath(settingsRoot, section);
    text += headerOf(section);
    for (const SettingsEntry& entry : settings.values(key))
        text += lineFor(entry.name, entry.value) + "\r\n";
    text += "\r\n";
    for (const std::string& name : settings.subkeys(key)) {
        const std::string below = section.empty() ? name : section + '\\' + name;
        if (below != "Presets") appendKeys(text, settings, below);
    }
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : int{c}; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [lower](char x, char y) { return lower(x) == lower(y); });
}

/// Takes a quoted text with its escapes off the front.
std::optional<std::string> takeQuoted(std::string_view& text) {
    if (!text.starts_with('"')) return std::nullopt;
    std::string content;
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '"') {
            text.remove_prefix(i + 1);
            return content;
        }
        if (text[i] == '\\' && i + 1 < text.size()) ++i;
        content += text[i];
    }
    return std::nullopt;
}

std::optional<std::uint32_t> parseDword(std::string_view digits) {
    std::uint32_t value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value, 16);
    if (error != std::errc{} || stop != end) return std::nullopt;
    return value;
}

/// Text of a `hex(1)` value, whose bytes are UTF-16.
std::optional<std::string> parseHexText(std::string_view bytes) {
    std::u16string wide;
    for (int index = 0; !bytes.empty(); ++index) {
        const std::size_t end = std::min(bytes.find(','), bytes.size());
        const auto byte = parseDword(bytes.substr(0, end));
        if (!byte || *byte > 0xFF) return std::nullopt;
        if (index % 2 == 0)
            wide += static_cast<char16_t>(*byte);
        else
            wide.back() = static_cast<char16_t>(wide.back() | *byte << 8);
        bytes.remove_prefix(std::min(end + 1, bytes.size()));
    }
    return narrowFromUtf16(std::u16string_view{wide}.substr(0, wide.find(u'\0')));
}

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    const std::size_t last = text.find_last_not_of(" \t\r");
    if (first == std::string_view::npos || last < first) return {};
    return text.substr(first, last - first + 1);
}

/// Reads an export line by line.
class Importer {
public:
    Importer(SettingsStore& settingsStore, PresetStore& presetStore)
        : settings(settingsStore), presets(presetStore) {}

    RegistryImport run(std::string_view text) {
        if (!takeTitle(text)) return result;
        result.isExport = true;
        {
            const SettingsBatch batch{settings};
            while (!text.empty())
                takeEntry(nextEntry(text));
        }
        savePresets();
        return std::move(result);
    }

private:
    std::string_view nextLine(std::string_view& text) {
        ++line;
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view content = trimmed(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        return content;
    }

    /// A line with those that go on with it: the bytes of a long value are wrapped.
    std::string nextEntry(std::string_view& text) {
        std::string entry{nextLine(text)};
        while (entry.ends_with(",\\") && !text.empty()) {
            entry.pop_back();
            entry += nextLine(text);
        }
        return entry;
    }

    bool takeTitle(std::string_view& text) {
        while (!text.empty()) {
            const std::string_view title = nextLine(text);
            if (title.empty()) continue;
            return title == "REGEDIT4" || title == "Windows Registry Editor Version 5.00";
        }
        return false;
    }

    void takeEntry(std::string_view content) {
        if (content.empty() || content.front() == ';') return;
        if (content.front() == '[')
            takeSection(content);
        else
            takeValue(content);
    }

    void takeSection(std::string_view content) {
        section.reset();
        if (!content.ends_with(']')) return passOver("a section line without its end");
        content = content.substr(1, content.size() - 2);
        const std::string ours = std::string{userKey}.append(settingsRoot);
        if (content.starts_with('-')) return passOver("the removal of a whole key");
        const bool isOurs = equalIgnoringCase(content.substr(0, ours.size()), ours) &&
                            (content.size() == ours.size() || content[ours.size()] == '\\');
        if (!isOurs) return passOver("a key outside of the settings");
        content.remove_prefix(std::min(ours.size() + 1, content.size()));
        section = content;
    }

    void takeValue(std::string_view content) {
        if (!section) return; // of a key that was passed over
        const auto name = takeQuoted(content);
        if (!name || !content.starts_with('=')) return passOver("a line that is no value");
        content.remove_prefix(1);
        if (content == "-") {
            settings.erase(keyPath(settingsRoot, *section), *name);
            ++result.values;
        } else if (auto value = parseValue(content)) {
            put(*name, *value);
        } else {
            passOver("a value that no setting can have");
        }
    }

    static std::optional<SettingsValue> parseValue(std::string_view content) {
        if (content.starts_with("dword:")) return parseDword(content.substr(6));
        if (content.starts_with("hex(1):")) return parseHexText(content.substr(7));
        const auto text = takeQuoted(content);
        return text && content.empty() ? text : std::nullopt;
    }

    void put(const std::string& name, const SettingsValue& value) {
        if (!section->starts_with(presetsPrefix)) {
            settings.set(keyPath(settingsRoot, *section), name, value);
            ++result.values;
        } else if (const auto* const number = std::get_if<std::uint32_t>(&value)) {
            read[section->substr(presetsPrefix.size())].emplace_back(name, *number);
        } else {
            passOver("a text in a preset");
        }
    }

    void savePresets() {
        for (const auto& [name, values] : read) {
            if (presets.save(name, values))
                ++result.presets;
            else
                result.remarks.push_back({0, 0, true, "the preset '" + name + "' can't be saved"});
        }
    }

    void passOver(const char* what) {
        result.remarks.push_back({line, 1, false, std::string{what} + " was passed over"});
    }

    SettingsStore& settings;
    PresetStore& presets;
    RegistryImport result;
    int line = 0;
    std::optional<std::string> section;       ///< of the lines; none while they aren't ours
    std::map<std::string, PresetValues> read; ///< presets met so far
};

} // namespace

std::vector<std::byte> exportRegistryText(SettingsStore& settings, PresetStore& presets) {
    std::string text = "Windows Registry Editor Version 5.00\r\n\r\n";
    appendKeys(text, settings, "");
    for (const std::string& name : presets.names()) {
        text += headerOf(presetSection(name));
        for (const auto& [value, bits] : presets.load(name).value_or(PresetValues{}))
            text += lineFor(value, bits) + "\r\n";
        text += "\r\n";
    }
    std::vector<std::byte> bytes{std::byte{0xFF}, std::byte{0xFE}};
    for (const char16_t unit : utf16FromNarrow(text)) {
        bytes.push_back(static_cast<std::byte>(unit & 0xFF));
        bytes.push_back(static_cast<std::byte>(unit >> 8));
    }
    return bytes;
}

RegistryImport importRegistryText(std::span<const std::byte> text, SettingsStore& settings,
                                  PresetStore& presets) {
    return Importer{settings, presets}.run(narrowText(text));
}

} // namespace velorine
