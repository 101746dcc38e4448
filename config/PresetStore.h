#pragma once

#include "config/SettingsStore.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velorine {

/// Values of the section "Eq", as stored, by name.
using PresetValues = std::vector<std::pair<std::string, std::uint32_t>>;

/// The user's named presets. Names that `isPresetName` refuses are never found and never saved.
/// Any thread.
class PresetStore {
public:
    virtual ~PresetStore() = default;

    virtual std::vector<std::string> names() = 0; ///< sorted
    virtual std::optional<PresetValues> load(std::string_view name) = 0;

    /// In the place of a preset of this name, if there is one.
    /// @return whether it will outlive the process
    virtual bool save(std::string_view name, const PresetValues& values) = 0;

    /// @return whether there was one
    virtual bool remove(std::string_view name) = 0;
};

/// Whether a preset may be called so: 1 to 100 bytes that can be a file's name and a registry key's
/// on every system, so that presets move between them.
bool isPresetName(std::string_view name);

/// Presets as subkeys of the key `Presets`, one a name.
class SubkeyPresets final : public PresetStore {
public:
    explicit SubkeyPresets(SettingsStore& settings) : store(settings) {}

    std::vector<std::string> names() override;
    std::optional<PresetValues> load(std::string_view name) override;
    bool save(std::string_view name, const PresetValues& values) override;
    bool remove(std::string_view name) override;

private:
    SettingsStore& store; ///< outlives this
};

/// Section in which `SubkeyPresets` keeps a preset.
std::string presetSection(std::string_view name);

} // namespace velorine
