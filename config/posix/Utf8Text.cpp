#include "config/NarrowText.h"

namespace velorine {

namespace {

constexpr char32_t replacement = 0xFFFD;

bool isLead(char16_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}
bool isTrail(char16_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}

/// Takes one code point off the front; malformed bytes one at a time.
char32_t takeUtf16(std::u16string_view& text) {
    const char16_t unit = text.front();
    text.remove_prefix(1);
    if (!isLead(unit) && !isTrail(unit)) return unit;
    if (isTrail(unit) || text.empty() || !isTrail(text.front())) return replacement;
    const char32_t high = unit - 0xD800U;
    const char32_t low = text.front() - 0xDC00U;
    text.remove_prefix(1);
    return 0x10000 + (high << 10 | low);
}

char32_t takeUtf8(std::string_view& text) {
    const auto byteAt = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byteAt(0);
    const std::size_t length = first < 0x80                     ? 1
                               : first >= 0xC2 && first < 0xE0  ? 2
                               : first >= 0xE0 && first < 0xF0  ? 3
                               : first >= 0xF0 && first <= 0xF4 ? 4
                                                                : 0;
    char32_t code = length == 1 ? first : first & (0x7FU >> length);
    bool sound = length > 0 && length <= text.size();
    for (std::size_t i = 1; sound && i < length; ++i) {
        sound = (byteAt(i) & 0xC0U) == 0x80U;
        code = code << 6 | (byteAt(i) & 0x3FU);
    }
    const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const bool surrogate = code >= 0xD800 && code < 0xE000;
    sound = sound && !overlong && !surrogate && code <= 0x10FFFF;
    text.remove_prefix(sound ? length : 1);
    return sound ? code : replacement;
}

void appendUtf8(std::string& text, char32_t code) {
    const auto append = [&text](char32_t byte) { text += static_cast<char>(byte); };
    const auto appendTail = [&](int shift) { append(0x80 | (code >> shift & 0x3F)); };
    if (code < 0x80) {
        append(code);
    } else if (code < 0x800) {
        append(0xC0 | code >> 6);
        appendTail(0);
    } else if (code < 0x10000) {
        append(0xE0 | code >> 12);
        appendTail(6);
        appendTail(0);
    } else {
        append(0xF0 | code >> 18);
        appendTail(12);
        appendTail(6);
        appendTail(0);
    }
}

} // namespace

std::string narrowFromUtf16(std::u16string_view text) {
    std::string narrow;
    while (!text.empty())
        appendUtf8(narrow, takeUtf16(text));
    return narrow;
}

std::u16string utf16FromNarrow(std::string_view text) {
    std::u16string wide;
    while (!text.empty()) {
        const char32_t code = takeUtf8(text);
        if (code < 0x10000) {
            wide += static_cast<char16_t>(code);
        } else {
            wide += static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10));
            wide += static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF));
        }
    }
    return wide;
}

} // namespace velorine
