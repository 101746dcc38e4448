#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace velorine {

/// Text that is safe to show on a terminal: control characters, which a file's name may hold,
/// become question marks. UTF-8 stays.
std::string printable(std::string_view text);

/// "3:07", "1:02:03"; negative counts as 0.
std::string clockText(std::int64_t ms);

/// Cut at the end so that it takes at most `columns` characters of a terminal.
std::string fitColumns(std::string_view text, int columns);

/// Last part of a path.
std::string_view baseName(std::string_view path);

} // namespace velorine
