#include "config/posix/TomlStore.h"

#include "config/posix/TomlSettings.h"

#include <algorithm>

namespace velorine {

namespace {

std::filesystem::path withSuffix(std::filesystem::path file, const char* suffix) {
    return file += suffix;
}

TomlStore::Options completed(TomlStore::Options options, const std::filesystem::path& file) {
    if (options.lockFile.empty()) options.lockFile = withSuffix(file, ".lock");
    return options;
}

/// What a reader takes a value for; nothing for one that isn't there.
std::optional<SettingsValue> settingFrom(const TomlValue* value) {
    return value ? settingFromToml(*value) : std::nullopt;
}

} // namespace

TomlStore::TomlStore(const std::filesystem::path& settingsFile)
    : TomlStore(settingsFile, Options{}) {}

TomlStore::TomlStore(const std::filesystem::path& settingsFile, Options choices)
    : options(completed(std::move(choices), settingsFile)), file(settingsFile) {}

std::optional<SettingsValue> TomlStore::value(std::string_view key, std::string_view name) {
    const auto section = sectionOf(key);
    if (!section) return std::nullopt;
    refresh();
    const Lock::Scope guard{lock};
    if (const Change* const change = pendingChange(*section, name)) return change->value;
    return settingFrom(file.find(*section, name));
}

bool TomlStore::exists(std::string_view key, std::string_view name) {
    const auto section = sectionOf(key);
    if (!section) return false;
    refresh();
    const Lock::Scope guard{lock};
    if (const Change* const change = pendingChange(*section, name))
        return change->value.has_value();
    return file.find(*section, name) != nullptr;
}

void TomlStore::set(std::string_view key, std::string_view name, const SettingsValue& value) {
    change(key, name, value);
}

void TomlStore::erase(std::string_view key, std::string_view name) {
    change(key, name, std::nullopt);
}

std::vector<SettingsEntry> TomlStore::values(std::string_view key) {
    std::vector<SettingsEntry> entries;
    const auto section = sectionOf(key);
    if (!section) return entries;
    refresh();
    const Lock::Scope guard{lock};
    for (const TomlValue& value : file.values) {
        if (value.section != *section || pendingChange(*section, value.name)) continue;
        if (auto setting = settingFromToml(value))
            entries.push_back({value.name, std::move(*setting)});
    }
    for (const Change& change : pending)
        if (change.section == *section && change.value)
            entries.push_back({change.name, *change.value});
    return entries;
}

std::vector<std::string> TomlStore::subkeys(std::string_view key) {
    refresh();
    const Lock::Scope guard{lock};
    std::vector<std::string> paths;
    for (const TomlValue& value : file.values)
        if (!pendingChange(value.section, value.name))
            paths.push_back(keyPath(settingsRoot, value.section));
    for (const Change& change : pending)
        if (change.value) paths.push_back(keyPath(settingsRoot, change.section));
    return namesBelow(key, paths);
}

void TomlStore::eraseKey(std::string_view key) {
    const SettingsBatch batch{*this};
    for (const SettingsEntry& entry : values(key))
        erase(key, entry.name);
}

bool TomlStore::flush() {
    commit();
    const Lock::Scope guard{lock};
    return pending.empty();
}

void TomlStore::beginBatch() {
    const Lock::Scope guard{lock};
    ++batches;
}

void TomlStore::endBatch() {
    {
        const Lock::Scope guard{lock};
        if (--batches > 0) return;
    }
    commit();
}

const TomlStore::Change* TomlStore::pendingChange(std::string_view section,
                                                  std::string_view name) const {
    for (const Change& change : pending)
        if (change.name == name && change.section == section) return &change;
    return nullptr;
}

void TomlStore::change(std::string_view key, std::string_view name,
                       std::optional<SettingsValue> value) {
    const auto section = sectionOf(key);
    if (!section) return;
    {
        const Lock::Scope guard{lock};
        const auto known = std::find_if(pending.begin(), pending.end(), [&](const Change& change) {
            return change.name == name && change.section == *section;
        });
        if (known != pending.end())
            known->value = std::move(value);
        else
            pending.push_back({*section, std::string{name}, std::move(value)});
        if (batches > 0) return;
    }
    commit();
}

void TomlStore::refresh() {
    {
        const Lock::Scope guard{lock};
        file.refresh();
        if (file.error && file.text != brokenText) {
            const FileLock writers{options.lockFile, {}};
            file.readAgain(); // another process may just have written a sound one
            if (file.error) keepAside();
        }
    }
    report();
}

void TomlStore::commit() {
    {
        const Lock::Scope guard{lock};
        if (pending.empty()) return;
        file.refresh();
        if (!file.error && editsToFile().empty())
            pending.clear();
        else
            writeChanges();
    }
    report();
}

void TomlStore::writeChanges() {
    std::error_code refused;
    std::filesystem::create_directories(file.path.parent_path(), refused);
    const FileLock writers{options.lockFile, options.afterStep};
    if (!writers.isHeld()) return;
    file.readAgain();
    if (file.error && !keepAside()) return;
    const std::string text = file.error ? std::string{} : file.text;
    if (replaceFile(file.path, editToml(text, editsToFile()), options.afterStep)) pending.clear();
}

std::vector<TomlEdit> TomlStore::editsToFile() const {
    std::vector<TomlEdit> edits;
    for (const Change& change : pending) {
        const TomlValue* const known = file.find(change.section, change.name);
        if (!change.value) {
            if (known) edits.push_back({change.section, change.name, std::nullopt});
        } else if (settingFrom(known) != change.value) {
            edits.push_back({change.section, change.name,
                             tomlLiteral(change.section, change.name, *change.value)});
        }
    }
    return edits;
}

bool TomlStore::keepAside() {
    if (file.text == brokenText) return brokenIsSafe;
    const auto aside = withSuffix(file.path, ".broken");
    brokenText = file.text;
    brokenIsSafe = file.wasRead && replaceFile(aside, file.text, {});
    news = BrokenFile{file.path, brokenIsSafe ? aside : std::filesystem::path{}, *file.error};
    return brokenIsSafe;
}

void TomlStore::report() {
    std::optional<BrokenFile> told;
    {
        const Lock::Scope guard{lock};
        told = std::exchange(news, std::nullopt);
    }
    if (told && options.onBroken) options.onBroken(*told);
}

} // namespace velorine
