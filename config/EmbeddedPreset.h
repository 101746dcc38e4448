#pragma once

#include "config/SettingsStore.h"

#include <cstddef>
#include <span>

namespace velorine {

/// The factory tuning of the section "Eq" as the text of a registry export: UTF-16, little-endian,
/// with a byte-order mark, 108 values. Stays valid; any thread.
std::span<const std::byte> presetText();

/// Writes a preset over the section "Eq", so that a new build brings its tuning with it. Of the
/// user's own values `enable` and `magnitude` alone survive.
///
/// @param text  UTF-16 if it starts with a byte-order mark, else narrow
void applyPreset(SettingsStore& store, std::span<const std::byte> text = presetText());

} // namespace velorine
