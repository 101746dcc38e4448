#include "config/UserSettings.h"

#include "config/MemoryStore.h"
#include "config/posix/FilePresets.h"
#include "config/posix/SettingsFolder.h"
#include "config/posix/TomlFile.h"
#include "config/posix/TomlSettings.h"
#include "config/posix/TomlStore.h"

namespace velorine {

namespace {

constexpr const char* fileName = "settings.toml";

std::string describe(const BrokenFile& broken) {
    std::string text = broken.file.string();
    if (broken.error.line > 0)
        text += ":" + std::to_string(broken.error.line) + ":" + std::to_string(broken.error.column);
    text += ": " + broken.error.reason + "; the defaults serve";
    if (!broken.keptAs.empty()) text += ", the file is kept as " + broken.keptAs.string();
    return text;
}

} // namespace

UserSettings openUserSettings(std::function<void(const std::string& text)> warn) {
    UserSettings settings;
    const auto folder = settingsFolder();
    if (!folder) {
        settings.store = std::make_unique<MemoryStore>();
        settings.presets = std::make_unique<SubkeyPresets>(*settings.store);
        return settings;
    }
    TomlStore::Options options;
    if (warn)
        options.onBroken = [tell = std::move(warn)](const BrokenFile& broken) {
            tell(describe(broken));
        };
    settings.store = std::make_unique<TomlStore>(*folder / fileName, std::move(options));
    settings.presets = std::make_unique<FilePresets>(*folder / "presets");
    settings.place = (*folder / fileName).string();
    return settings;
}

std::vector<SettingsRemark> checkUserSettings() {
    const auto folder = settingsFolder();
    if (!folder) return {};
    TomlFile file{*folder / fileName};
    file.refresh();
    if (file.error && !file.wasRead) return {{0, 0, true, file.error->reason}};
    return checkTomlSettings(file.text);
}

} // namespace velorine
