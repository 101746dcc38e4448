#pragma once

#include "config/PresetStore.h"
#include "config/SettingsCheck.h"
#include "config/SettingsStore.h"

#include <cstddef>
#include <span>
#include <vector>

namespace velorine {

/// Settings as the text of a registry export, which is how they move between machines of either
/// kind.

/// All values of the store, and all presets as subkeys of `Presets`, under the root that they have
/// in the registry.
/// @return UTF-16, little-endian, with a byte-order mark, as the registry's own editor writes it
std::vector<std::byte> exportRegistryText(SettingsStore& settings, PresetStore& presets);

/// What an import did.
struct RegistryImport {
    bool isExport = false;               ///< false: the text is none, and nothing was taken
    int values = 0;                      ///< set or removed
    int presets = 0;                     ///< saved
    std::vector<SettingsRemark> remarks; ///< what was passed over; columns are 1
};

/// Takes the values below our own root; those of others, and of types that no setting has, are
/// passed over.
/// @param text  UTF-16 if it starts with a byte-order mark, else narrow
RegistryImport importRegistryText(std::span<const std::byte> text, SettingsStore& settings,
                                  PresetStore& presets);

} // namespace velorine
