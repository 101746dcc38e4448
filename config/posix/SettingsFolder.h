#pragma once

#include <filesystem>
#include <optional>

namespace velorine {

/// Folder of the user's settings: `$VELORINE_CONFIG_DIR`, else `$XDG_CONFIG_HOME/velorine`, else
/// `~/.config/velorine`; it need not exist. Nothing where none of these is set.
std::optional<std::filesystem::path> settingsFolder();

} // namespace velorine
