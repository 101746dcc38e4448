#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace velorine {

/// Between UTF-16 and the narrow text of the machine: UTF-8, or the user's code page on Windows.
/// What the other form has no character for is replaced.
std::string narrowFromUtf16(std::u16string_view text);
std::u16string utf16FromNarrow(std::string_view text);

/// A file's text: UTF-16, little-endian, if it starts with that byte-order mark, else narrow. The
/// mark of UTF-8 is dropped.
std::string narrowText(std::span<const std::byte> bytes);

} // namespace velorine
