#include "config/NarrowText.h"

#include <windows.h>

namespace velorine {

static_assert(sizeof(wchar_t) == sizeof(char16_t));

std::string narrowFromUtf16(std::u16string_view text) {
    const auto* const wide = reinterpret_cast<const wchar_t*>(text.data());
    const int count = static_cast<int>(text.size());
    if (count == 0) return {};
    const int needed = WideCharToMultiByte(CP_ACP, 0, wide, count, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(needed), '\0');
    WideCharToMultiByte(CP_ACP, 0, wide, count, narrow.data(), needed, nullptr, nullptr);
    return narrow;
}

std::u16string utf16FromNarrow(std::string_view text) {
    const int count = static_cast<int>(text.size());
    if (count == 0) return {};
    const int needed = MultiByteToWideChar(CP_ACP, 0, text.data(), count, nullptr, 0);
    std::u16string wide(static_cast<std::size_t>(needed), u'\0');
    MultiByteToWideChar(CP_ACP, 0, text.data(), count, reinterpret_cast<wchar_t*>(wide.data()),
                        needed);
    return wide;
}

} // namespace velorine
