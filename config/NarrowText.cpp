#include "config/NarrowText.h"

#include <cstring>

namespace velorine {

std::string narrowText(std::span<const std::byte> bytes) {
    const auto startsWith = [bytes](std::string_view mark) {
        return bytes.size() >= mark.size() &&
               std::memcmp(bytes.data(), mark.data(), mark.size()) == 0;
    };
    if (startsWith("\xFF\xFE")) {
        std::u16string wide(bytes.size() / 2 - 1, u'\0');
        for (std::size_t i = 0; i < wide.size(); ++i)
            wide[i] = static_cast<char16_t>(std::to_integer<unsigned>(bytes[2 * i + 2]) |
                                            std::to_integer<unsigned>(bytes[2 * i + 3]) << 8);
        return narrowFromUtf16(wide);
    }
    std::string text(bytes.size(), '\0');
    if (!bytes.empty()) std::memcpy(text.data(), bytes.data(), bytes.size());
    if (startsWith("\xEF\xBB\xBF")) text.erase(0, 3);
    return text;
}

} // namespace velorine
