#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace velorine {

/// One value of a TOML text, with where it stands there.
struct TomlValue {
    enum class Kind { boolean, integer, real, text, other };

    std::string section; ///< table, "" at the top
    std::string name;
    Kind kind = Kind::other;
    std::string content;   ///< a real as written, without underscores; what a text says
    long long integer = 0; ///< of an integer or a boolean
    int line = 0;          ///< from 1
    int column = 0;        ///< from 1, in characters
};

/// Why a text is no TOML.
struct TomlError {
    int line = 0;
    int column = 0;
    std::string reason;
};

/// The values of all tables at the top, and those outside of any; what nests deeper is `other`.
std::variant<std::vector<TomlValue>, TomlError> readToml(std::string_view text);

/// A change to one value: what is to be written for it, or nothing to take it out.
struct TomlEdit {
    std::string section;
    std::string name;
    std::optional<std::string> literal;
};

/// Applies edits, at most one a value, to a text that is TOML. Everything else stays as it was
/// typed: comments, order and layout, and values that nobody knows. New values follow those of
/// their table, new tables come last.
std::string editToml(const std::string& text, std::span<const TomlEdit> edits);

/// A string as TOML writes it, quotes included. What isn't UTF-8 is replaced.
std::string tomlString(std::string_view text);

} // namespace velorine
