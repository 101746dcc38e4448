#include "config/EmbeddedPreset.h"

#include "config/KeyTable.h"
#include "config/NarrowText.h"
#include "config/RegistryNode.h"

#include <array>
#include <cstdio>
#include <cstdlib>

namespace velorine {

namespace {

/// The section line keeps the name that the tuning was exported under; nothing reads it.
constexpr std::string_view head =
    "Windows Registry Editor Version 5.00\r\n"
    "[HKEY_CURRENT_USER\\Software\\Tolvane Developments\\Orvex\\Winamp\\Eq]\r\n";

std::string narrowPreset() {
    std::string text{head};
    std::string_view lineEnd;
    for (const SettingKey& key : settingKeys()) {
        if (key.section != "Eq") continue;
        std::array<char, 16> digits{};
        std::snprintf(digits.data(), digits.size(), "%08x", key.bits);
        text.append(lineEnd)
            .append("\"")
            .append(key.name)
            .append("\"=dword:")
            .append(digits.data());
        lineEnd = "\r\n";
    }
    return text + '\n';
}

std::vector<std::byte> encodeUtf16(std::string_view ascii) {
    std::vector<std::byte> bytes{std::byte{0xFF}, std::byte{0xFE}};
    for (const char c : ascii) {
        bytes.push_back(static_cast<std::byte>(c));
        bytes.push_back(std::byte{0});
    }
    return bytes;
}

} // namespace

std::span<const std::byte> presetText() {
    static const std::vector<std::byte> text = encodeUtf16(narrowPreset());
    return text;
}

void applyPreset(SettingsStore& store, std::span<const std::byte> text) {
    constexpr std::size_t dwordLead = 8; // from the closing quote: "=dword:
    constexpr std::size_t digitCount = 8;

    const std::string narrow = narrowText(text);
    const SettingsBatch batch{store};
    RegistryNode node{store, RegistryNode::write};

    for (std::size_t position = 0; position < narrow.size();) {
        const std::size_t opening = narrow.find('"', position);
        if (opening == std::string::npos) return;
        const std::size_t closing = narrow.find('"', opening + 1);
        if (closing == std::string::npos || closing + dwordLead >= narrow.size()) return;

        const std::string name = narrow.substr(opening + 1, closing - opening - 1);
        const std::string digits = narrow.substr(closing + dwordLead, digitCount);
        auto bits = static_cast<std::uint32_t>(std::strtoul(digits.c_str(), nullptr, 16));
        const bool ownedByUser = name == "enable" || name == "magnitude";
        if (!ownedByUser || !node.valueExists("Eq", name)) node.exchangeDword("Eq", name, bits);
        position = closing + dwordLead + digitCount;
    }
}

} // namespace velorine
