#include "config/posix/TomlText.h"

#include "config/NarrowText.h"

#define TOML_HEADER_ONLY 1
#define TOML_EXCEPTIONS 0
#include <toml++/toml.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>

namespace velorine {

namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

/// Byte offsets of positions that are given as line and column.
class LineIndex {
public:
    explicit LineIndex(std::string_view whole) : text(whole) {
        std::size_t start = text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0;
        for (;;) {
            starts.push_back(start);
            const std::size_t end = text.find('\n', start);
            if (end == std::string_view::npos) return;
            start = end + 1;
        }
    }

    std::size_t offset(toml::source_position position) const {
        std::size_t at = lineStart(position);
        for (auto column = position.column; column > 1 && at < text.size(); --column)
            do
                ++at;
            while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U);
        return at;
    }

    std::size_t lineStart(toml::source_position position) const {
        return position.line <= starts.size() ? starts[position.line - 1] : text.size();
    }

    /// Start of the line that follows, or the end of the text.
    std::size_t nextLine(toml::source_position position) const {
        return position.line < starts.size() ? starts[position.line] : text.size();
    }

private:
    std::string_view text;
    std::vector<std::size_t> starts;
};

/// A stretch of the text and what takes its place.
struct Patch {
    std::size_t begin;
    std::size_t end;
    std::string text;
};

/// Tables nest as deep as a line has dots, and the parser recurses: no line that a person would
/// type gets near this.
constexpr std::size_t longestLine = 8192;

std::optional<TomlError> overlongLine(std::string_view text) {
    int line = 1;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        if (end > longestLine) return TomlError{line, 1, "the line is too long"};
        text.remove_prefix(std::min(end + 1, text.size()));
        ++line;
    }
    return std::nullopt;
}

TomlValue describe(std::string_view text, const LineIndex& lines, std::string_view section,
                   std::string_view name, const toml::node& node) {
    const auto region = node.source();
    TomlValue value;
    value.section = section;
    value.name = name;
    value.line = static_cast<int>(region.begin.line);
    value.column = static_cast<int>(region.begin.column);
    if (const auto* flag = node.as_boolean()) {
        value.kind = TomlValue::Kind::boolean;
        value.integer = flag->get() ? 1 : 0;
    } else if (const auto* integer = node.as_integer()) {
        value.kind = TomlValue::Kind::integer;
        value.integer = integer->get();
    } else if (const auto* string = node.as_string()) {
        value.kind = TomlValue::Kind::text;
        value.content = string->get();
    } else if (node.is_floating_point()) {
        // As it was typed: a detour by double could round twice, and drops the sign of a nan.
        value.kind = TomlValue::Kind::real;
        const std::size_t begin = lines.offset(region.begin);
        value.content = text.substr(begin, lines.offset(region.end) - begin);
        std::erase(value.content, '_');
    }
    return value;
}

const toml::node* find(const toml::table& root, const TomlEdit& edit) {
    if (edit.section.empty()) return root.get(edit.name);
    const toml::node* const section = root.get(edit.section);
    const toml::table* const table = section ? section->as_table() : nullptr;
    return table ? table->get(edit.name) : nullptr;
}

/// Name as a key: bare where TOML allows it.
std::string tomlKey(std::string_view name) {
    const bool bare = !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_' || c == '-';
    });
    return bare ? std::string{name} : tomlString(name);
}

bool isBefore(toml::source_position a, toml::source_position b) {
    return a.line < b.line || (a.line == b.line && a.column < b.column);
}

using TableItem = std::pair<const toml::key*, const toml::node*>;

/// The value that stands last of those typed as `key = value` right in the table.
std::optional<TableItem> lastValue(const toml::table& table) {
    std::optional<TableItem> last;
    for (const auto& [key, node] : table) {
        const bool isTyped = isBefore(key.source().begin, node.source().begin);
        if (!isTyped) continue; // a table with a header of its own, or one that dots made
        if (!last || isBefore(last->second->source().end, node.source().end))
            last = TableItem{&key, &node};
    }
    return last;
}

/// Plans how edits change a text.
class Patcher {
public:
    Patcher(std::string_view whole, const toml::table& parsed)
        : text(whole), root(parsed), lines(whole) {}

    std::vector<Patch> plan(std::span<const TomlEdit> edits) {
        std::vector<Additions> newSections;
        for (Additions& additions : changeKnown(edits))
            if (!addToKnown(additions)) newSections.push_back(std::move(additions));
        for (const Additions& additions : newSections)
            addSection(additions); // behind what is added to the section that was the last one
        std::stable_sort(patches.begin(), patches.end(),
                         [](const Patch& a, const Patch& b) { return a.begin < b.begin; });
        return std::move(patches);
    }

private:
    /// New values of one section.
    struct Additions {
        std::string section;
        std::vector<std::string> lines; ///< `name = literal`
    };

    /// Changes and removes what is there.
    /// @return what isn't, by section
    std::vector<Additions> changeKnown(std::span<const TomlEdit> edits) {
        std::vector<Additions> missing;
        for (const TomlEdit& edit : edits) {
            if (const toml::node* const node = find(root, edit)) {
                change(edit, *node);
            } else if (edit.literal) {
                auto own = std::find_if(missing.begin(), missing.end(), [&](const Additions& a) {
                    return a.section == edit.section;
                });
                if (own == missing.end()) own = missing.insert(own, {edit.section, {}});
                own->lines.push_back(tomlKey(edit.name) + " = " + *edit.literal);
            }
        }
        return missing;
    }

    void change(const TomlEdit& edit, const toml::node& node) {
        const std::size_t begin = lines.offset(node.source().begin);
        const std::size_t end = lines.offset(node.source().end);
        if (edit.literal) {
            patches.push_back({begin, end, *edit.literal});
            return;
        }
        const toml::table& table =
            edit.section.empty() ? root : *root.get(edit.section)->as_table();
        const toml::key& key = table.find(edit.name)->first;
        patches.push_back(
            {lines.lineStart(key.source().begin), lines.nextLine(node.source().end), ""});
    }

    bool addToKnown(const Additions& additions) {
        if (additions.section.empty()) {
            addLines(lastValue(root), afterByteOrderMark(), additions);
            return true;
        }
        const auto found = root.find(additions.section);
        const toml::table* const table = found == root.end() ? nullptr : found->second.as_table();
        if (!table) return false;
        const auto last = lastValue(*table);
        if (table->is_inline())
            addInline(*table, last, additions);
        else if (last || hasHeader(found->first))
            addLines(last, lines.nextLine(table->source().begin), additions);
        else
            return false;
        return true;
    }

    std::size_t afterByteOrderMark() const {
        return text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0;
    }

    /// Whether the section has a line of its own: `[Eq]`, but not `[Eq.more]`.
    bool hasHeader(const toml::key& section) const {
        const std::size_t after = text.find_first_not_of(" \t", lines.offset(section.source().end));
        return after != std::string_view::npos && text[after] == ']';
    }

    void addInline(const toml::table& table, const std::optional<TableItem>& last,
                   const Additions& additions) {
        std::string added;
        for (const std::string& line : additions.lines)
            added += ", " + line;
        const std::size_t at = last ? lines.offset(last->second->source().end)
                                    : lines.offset(table.source().begin) + 1;
        patches.push_back({at, at, last ? added : added.substr(1)});
    }

    void addLines(const std::optional<TableItem>& last, std::size_t at,
                  const Additions& additions) {
        std::string_view lead;
        if (last) {
            // Indentation, and the section's name where keys are dotted.
            const auto key = last->first->source().begin;
            const std::size_t lineStart = lines.lineStart(key);
            lead = text.substr(lineStart, lines.offset(key) - lineStart);
            at = lines.nextLine(last->second->source().end);
        }
        const bool lineIsOpen = at > afterByteOrderMark() && text[at - 1] != '\n';
        std::string added{lineIsOpen ? "\n" : ""};
        for (const std::string& line : additions.lines)
            added.append(lead).append(line).append("\n");
        patches.push_back({at, at, added});
    }

    void addSection(const Additions& additions) {
        std::string added{!text.empty() && text.back() != '\n' ? "\n" : ""};
        if (!text.empty() || !patches.empty()) added += '\n';
        added += '[' + tomlKey(additions.section) + "]\n";
        for (const std::string& line : additions.lines)
            added += line + '\n';
        patches.push_back({text.size(), text.size(), added});
    }

    std::string_view text;
    const toml::table& root;
    LineIndex lines;
    std::vector<Patch> patches;
};

/// The text with patches in order applied; nothing when two of them meet.
std::optional<std::string> applyPatches(std::string_view text, const std::vector<Patch>& patches) {
    std::string result;
    std::size_t done = 0;
    for (const Patch& patch : patches) {
        if (patch.begin < done) return std::nullopt;
        result.append(text.substr(done, patch.begin - done)).append(patch.text);
        done = patch.end;
    }
    return result.append(text.substr(done));
}

/// The tree that the edited text has to have.
toml::table editTree(toml::table tree, std::span<const TomlEdit> edits) {
    for (const TomlEdit& edit : edits) {
        toml::table* table = &tree;
        if (!edit.section.empty()) {
            if (!tree.get(edit.section) || !tree.get(edit.section)->is_table())
                if (edit.literal) tree.insert_or_assign(edit.section, toml::table{});
            table = tree.get_as<toml::table>(edit.section);
        }
        if (!table) continue;
        if (!edit.literal) {
            table->erase(edit.name);
            continue;
        }
        toml::parse_result value = toml::parse("value = " + *edit.literal);
        table->insert_or_assign(edit.name, std::move(*value.table().get("value")));
    }
    return tree;
}

std::string printTree(const toml::table& tree) {
    std::ostringstream stream;
    stream << toml::toml_formatter{tree};
    return stream.str();
}

} // namespace

std::variant<std::vector<TomlValue>, TomlError> readToml(std::string_view text) {
    if (auto error = overlongLine(text)) return std::move(*error);
    const toml::parse_result parsed = toml::parse(text);
    if (!parsed) {
        const auto at = parsed.error().source().begin;
        return TomlError{static_cast<int>(at.line), static_cast<int>(at.column),
                         std::string{parsed.error().description()}};
    }
    const LineIndex lines{text};
    std::vector<TomlValue> values;
    for (const auto& [name, node] : parsed.table()) {
        const toml::table* const section = node.as_table();
        if (!section) {
            values.push_back(describe(text, lines, "", name.str(), node));
            continue;
        }
        for (const auto& [innerName, innerNode] : *section)
            values.push_back(describe(text, lines, name.str(), innerName.str(), innerNode));
    }
    std::sort(values.begin(), values.end(), [](const TomlValue& a, const TomlValue& b) {
        return a.line < b.line || (a.line == b.line && a.column < b.column);
    });
    return values;
}

std::string editToml(const std::string& text, std::span<const TomlEdit> edits) {
    const toml::parse_result parsed = toml::parse(text);
    const std::string wanted = printTree(editTree(parsed.table(), edits));
    if (auto patched = applyPatches(text, Patcher{text, parsed.table()}.plan(edits))) {
        const toml::parse_result again = toml::parse(*patched);
        if (again && printTree(again.table()) == wanted) return std::move(*patched);
    }
    return wanted + '\n'; // a layout that patches can't reach; its comments are the price
}

std::string tomlString(std::string_view text) {
    std::string quoted{"\""};
    for (const char c : narrowFromUtf16(utf16FromNarrow(text))) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            quoted += '\\';
            quoted += c;
        } else if (byte < 0x20 || byte == 0x7F) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\u%04X", static_cast<unsigned>(byte));
            quoted += escape.data();
        } else {
            quoted += c;
        }
    }
    return quoted + '"';
}

} // namespace velorine
