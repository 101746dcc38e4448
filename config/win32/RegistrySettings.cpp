#include "config/UserSettings.h"

#include "config/KeyTable.h"
#include "config/win32/RegistryStore.h"

namespace velorine {

UserSettings openUserSettings(std::function<void(const std::string& text)>) {
    UserSettings settings;
    settings.store = std::make_unique<RegistryStore>();
    settings.presets = std::make_unique<SubkeyPresets>(*settings.store);
    settings.place = std::string{"HKEY_CURRENT_USER\\"}.append(settingsRoot);
    return settings;
}

std::vector<SettingsRemark> checkUserSettings() {
    RegistryStore store;
    std::vector<SettingsRemark> remarks;
    for (const SettingKey& key : settingKeys()) {
        if (!store.exists(key.key(), key.name)) continue;
        const auto stored = store.value(key.key(), key.name);
        if (stored && stored->index() == key.defaultValue().index()) continue;
        const char* const type = key.kind == SettingKind::text ? "REG_SZ" : "REG_DWORD";
        remarks.push_back(
            {0, 0, true, key.section + "/" + key.name + " is no " + type + "; the default stands"});
    }
    return remarks;
}

} // namespace velorine
