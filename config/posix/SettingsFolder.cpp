#include "config/posix/SettingsFolder.h"

#include <cstdlib>

namespace velorine {

namespace {
std::optional<std::filesystem::path> pathIn(const char* variable) {
    const char* const value = std::getenv(variable);
    if (!value || *value == '\0') return std::nullopt;
    return std::filesystem::path{value};
}
} // namespace

std::optional<std::filesystem::path> settingsFolder() {
    if (auto own = pathIn("VELORINE_CONFIG_DIR")) return own;
    const auto base = pathIn("XDG_CONFIG_HOME");
    if (base && base->is_absolute()) return *base / "velorine"; // relative ones are to be ignored
    if (const auto home = pathIn("HOME")) return *home / ".config" / "velorine";
    return std::nullopt;
}

} // namespace velorine
