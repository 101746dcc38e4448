#pragma once

#include "config/PresetStore.h"

#include <filesystem>

namespace velorine {

/// Presets as files `NAME.toml` of a folder, each a settings file that holds the section "Eq"
/// alone.
class FilePresets final : public PresetStore {
public:
    explicit FilePresets(std::filesystem::path presetFolder) : folder(std::move(presetFolder)) {}

    std::vector<std::string> names() override;
    std::optional<PresetValues> load(std::string_view name) override;
    bool save(std::string_view name, const PresetValues& values) override;
    bool remove(std::string_view name) override;

private:
    std::filesystem::path fileOf(std::string_view name) const;

    const std::filesystem::path folder;
};

} // namespace velorine
