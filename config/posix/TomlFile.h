#pragma once

#include "config/posix/Descriptor.h"
#include "config/posix/TomlText.h"

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace velorine {

/// A TOML file as it was last read; one that isn't there is empty. One thread at a time.
class TomlFile {
public:
    explicit TomlFile(std::filesystem::path name) : path(std::move(name)) {}

    /// Reads the file if it isn't the one that was read last.
    void refresh();

    /// Reads it in any case.
    void readAgain();

    const TomlValue* find(std::string_view section, std::string_view name) const;

    const std::filesystem::path path;
    bool wasRead = false; ///< there is a file, and `text` is all of it
    std::string text;
    std::vector<TomlValue> values;  ///< in their order
    std::optional<TomlError> error; ///< why there are no values

private:
    Descriptor current; ///< kept open, so that no new file can take on the identity of this one
    struct stat identity {};
};

} // namespace velorine
