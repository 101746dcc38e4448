#pragma once

#include "config/SettingsStore.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace velorine {

/// Direction and place of an exchange of settings: one routine a class both loads and saves.
///
/// Reading leaves the caller's value standing where the store has none of the right type, so that
/// defaults come from constructors alone. Nothing fails visibly. Threads: the host's and the
/// dialogs', each with a node of its own.
class RegistryNode {
public:
    enum Mode : std::int32_t { read = 0, write = 1 };

    RegistryNode(SettingsStore& settings, Mode direction, std::string_view root = settingsRoot)
        : path(root), mode(direction), store(&settings) {}

    void exchangeDword(std::string_view section, std::string_view name, std::uint32_t& value);

    /// True for any stored value but 0; stored as 0 or 1.
    void exchangeBool(std::string_view section, std::string_view name, bool& value);
    void exchangeInt(std::string_view section, std::string_view name, std::int32_t& value);

    /// Stored as the bits of a single.
    void exchangeFloat(std::string_view section, std::string_view name, float& value);

    /// Stored as a single, and narrowed to one even where nothing is stored: the first run and the
    /// next one, which finds settings, compute with the same numbers.
    void exchangeDouble(std::string_view section, std::string_view name, double& value);

    /// @param maxLength  bytes that the caller has room for, the terminating zero included: a
    ///                   longer text isn't read
    void exchangeString(std::string_view section, std::size_t maxLength, std::string_view name,
                        std::string& value);

    /// Whether the store has both key and value, of whatever type.
    bool valueExists(std::string_view section, std::string_view name) const;

    std::string path; ///< key below the current user
    Mode mode;
    SettingsStore* store; ///< never null; outlives the node

private:
    void createKeyForWriting(std::string_view section);
};

} // namespace velorine
