#include "player/Text.h"

#include <algorithm>
#include <cstdio>

namespace velorine {

namespace {

bool continuesCharacter(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

} // namespace

std::string printable(std::string_view text) {
    std::string shown{text};
    for (char& c : shown)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
    return shown;
}

std::string clockText(std::int64_t ms) {
    const std::int64_t seconds = std::max<std::int64_t>(ms, 0) / 1000;
    char text[32];
    if (seconds >= 3600)
        std::snprintf(text, sizeof text, "%lld:%02d:%02d", static_cast<long long>(seconds / 3600),
                      static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60));
    else
        std::snprintf(text, sizeof text, "%d:%02d", static_cast<int>(seconds / 60),
                      static_cast<int>(seconds % 60));
    return text;
}

std::string fitColumns(std::string_view text, int columns) {
    int used = 0;
    std::size_t end = 0;
    for (; end < text.size(); ++end) {
        if (continuesCharacter(text[end])) continue;
        if (used == columns) break;
        ++used;
    }
    return std::string{text.substr(0, end)};
}

std::string_view baseName(std::string_view path) {
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

} // namespace velorine
