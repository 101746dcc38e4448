#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace velorine {

/// Key under which all settings stand, below the current user.
inline constexpr std::string_view settingsRoot = "Software\\Tolvane Developments\\Velorine\\Winamp";

/// Key of a section: `path` itself for an empty one, else joined by one backslash, however many of
/// the two bring one along.
std::string keyPath(std::string_view path, std::string_view section);

/// Section that a key stands for, "" at the root; nothing for a key outside of it.
std::optional<std::string> sectionOf(std::string_view key);

/// A value as it is stored: a dword (a number, a bool, or the bits of a float) or a text.
using SettingsValue = std::variant<std::uint32_t, std::string>;

struct SettingsEntry {
    std::string name;
    SettingsValue value;

    friend bool operator==(const SettingsEntry&, const SettingsEntry&) = default;
};

/// Where settings outlive the process: keys, each with named values, as a registry has them.
///
/// Keys are paths below the current user, at or under `settingsRoot`; a store that knows nothing
/// else ignores other ones. Spelling counts, upper and lower case included. No operation fails
/// visibly: what can't be read is absent, what can't be written is lost. Any thread.
class SettingsStore {
public:
    virtual ~SettingsStore() = default;

    /// The value, if it is there and a dword or a text.
    virtual std::optional<SettingsValue> value(std::string_view key, std::string_view name) = 0;

    /// Whether key and value are there, of whatever type.
    virtual bool exists(std::string_view key, std::string_view name) {
        return value(key, name).has_value();
    }

    virtual void set(std::string_view key, std::string_view name, const SettingsValue& value) = 0;
    virtual void erase(std::string_view key, std::string_view name) = 0;

    /// The dwords and texts of a key.
    virtual std::vector<SettingsEntry> values(std::string_view key) = 0;

    /// Names of the keys right below `key`, sorted.
    virtual std::vector<std::string> subkeys(std::string_view key) = 0;

    virtual void createKey(std::string_view) {} ///< for stores that know empty keys
    virtual void eraseKey(std::string_view key) = 0;

    /// Writes what is still held back.
    /// @return whether all that was set will outlive the process
    virtual bool flush() { return true; }

    virtual void beginBatch() {} ///< as `SettingsBatch` does
    virtual void endBatch() {}

    /// The value, if it is there and of this type.
    std::optional<std::uint32_t> dword(std::string_view key, std::string_view name);
    std::optional<std::string> text(std::string_view key, std::string_view name);
};

/// Lets a store write all that is set within the scope in one go. Reads see it at once. May be
/// nested.
class SettingsBatch {
public:
    explicit SettingsBatch(SettingsStore& settings) : store(settings) { store.beginBatch(); }
    ~SettingsBatch() { store.endBatch(); }
    SettingsBatch(const SettingsBatch&) = delete;
    SettingsBatch& operator=(const SettingsBatch&) = delete;

private:
    SettingsStore& store;
};

/// Of key paths, the names of the keys right below `key`: sorted, each once.
std::vector<std::string> namesBelow(std::string_view key, const std::vector<std::string>& paths);

} // namespace velorine
