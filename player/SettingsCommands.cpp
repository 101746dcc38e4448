#include "player/SettingsCommands.h"

#include "config/NamedPresets.h"
#include "config/RegistryText.h"
#include "config/SettingText.h"
#include "config/UserSettings.h"
#include "player/Console.h"
#include "player/OutputFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <system_error>

namespace velorine {

namespace {

constexpr const char* nowhere =
    "there is no folder to keep settings in: set VELORINE_CONFIG_DIR or HOME";

UserSettings openFor(Console& console) {
    return openUserSettings([&console](const std::string& text) { console.say(text); });
}

void print(const std::string& line) {
    std::fputs((line + "\n").c_str(), stdout);
}

/// @return null, with a word on it, when there is no such setting
const SettingKey* named(const std::string& name, Console& console) {
    const SettingKey* const key = findSetting(name);
    if (!key) console.say("there is no setting '" + name + "'; 'velorine settings list' names all");
    return key;
}

/// What was changed is only done once it is kept.
ExitCode kept(UserSettings& user, Console& console) {
    if (user.place.empty()) {
        console.say(nowhere);
        return ExitCode::failed;
    }
    if (user.store->flush()) return ExitCode::ok;
    console.say(user.place, "cannot be written");
    return ExitCode::failed;
}

std::string assignmentText(SettingsStore& store, const SettingKey& key) {
    return key.section + "/" + key.name + "=" + printSetting(key, settingIn(store, key));
}

/// Each start of the engine writes its tuning over the section "Eq", all but two values.
void warnOfFactory(SettingsStore& store, const SettingKey& key, Console& console) {
    if (key.section != "Eq" || key.name == "enable" || key.name == "magnitude") return;
    const std::string active = activePreset(store);
    if (active.empty())
        console.say("the next start restores the factory value of Eq/" + key.name +
                    ", unless an active preset is set: 'velorine presets save NAME' and "
                    "'velorine presets load NAME' keep it");
    else
        console.say("the next start loads the active preset '" + active + "' over Eq/" + key.name +
                    ": 'velorine presets save " + active + "' keeps the value in it");
}

} // namespace

// -- Settings ----------------------------------------------------------------------------------

ExitCode SettingsCommands::list(const std::string& section) {
    const UserSettings user = openFor(console);
    bool found = false;
    for (const SettingKey& key : settingKeys()) {
        if (!section.empty() && key.section != section) continue;
        found = true;
        const bool isSet = user.store->exists(key.key(), key.name);
        print(assignmentText(*user.store, key) + (isSet ? "\tset\t" : "\tdefault\t") + key.meaning);
    }
    if (found) return ExitCode::ok;
    console.say("there is no section '" + section + "'");
    return ExitCode::usage;
}

ExitCode SettingsCommands::get(const std::string& name) {
    const SettingKey* const key = named(name, console);
    if (!key) return ExitCode::usage;
    const UserSettings user = openFor(console);
    print(printSetting(*key, settingIn(*user.store, *key)));
    return ExitCode::ok;
}

ExitCode SettingsCommands::set(const std::string& assignment) {
    const auto parsed = parseAssignment(assignment);
    if (const auto* const problem = std::get_if<std::string>(&parsed)) {
        console.say(*problem);
        return ExitCode::usage;
    }
    const auto& [key, value] = std::get<SettingAssignment>(parsed);
    UserSettings user = openFor(console);
    user.store->set(key->key(), key->name, value);
    const ExitCode result = kept(user, console);
    if (result == ExitCode::ok) warnOfFactory(*user.store, *key, console);
    return result;
}

ExitCode SettingsCommands::unset(const std::string& name) {
    const SettingKey* const key = named(name, console);
    if (!key) return ExitCode::usage;
    UserSettings user = openFor(console);
    user.store->erase(key->key(), key->name);
    return kept(user, console);
}

ExitCode SettingsCommands::path() {
    const UserSettings user = openFor(console);
    if (user.place.empty()) {
        console.say(nowhere);
        return ExitCode::failed;
    }
    print(user.place);
    return ExitCode::ok;
}

ExitCode SettingsCommands::check() {
    const std::string place = openFor(console).place;
    bool sound = true;
    for (const SettingsRemark& remark : checkUserSettings()) {
        std::string where = place;
        if (remark.line > 0)
            where += ":" + std::to_string(remark.line) + ":" + std::to_string(remark.column);
        print(where + ": " + remark.text);
        sound = sound && !remark.isError;
    }
    return sound ? ExitCode::ok : ExitCode::failed;
}

ExitCode SettingsCommands::exportTo(const std::string& file) {
    const UserSettings user = openFor(console);
    const std::vector<std::byte> text = exportRegistryText(*user.store, *user.presets);
    try {
        OutputFile output{file};
        std::ofstream stream{output.writePath(), std::ios::binary};
        stream.write(reinterpret_cast<const char*>(text.data()),
                     static_cast<std::streamsize>(text.size()));
        stream.close();
        if (!stream) throw OutputFileError("could not be written whole");
        output.commit();
        return ExitCode::ok;
    } catch (const OutputFileError& error) {
        console.say(file, error.what());
        return ExitCode::failed;
    }
}

ExitCode SettingsCommands::importFrom(const std::string& file) {
    std::ifstream stream{file, std::ios::binary};
    const std::string text{std::istreambuf_iterator<char>{stream}, {}};
    if (!stream) {
        console.say(file, std::generic_category().message(errno));
        return ExitCode::failed;
    }
    UserSettings user = openFor(console);
    const auto result =
        importRegistryText(std::as_bytes(std::span{text}), *user.store, *user.presets);
    if (!result.isExport) {
        console.say(file, "is no registry export");
        return ExitCode::failed;
    }
    for (const SettingsRemark& remark : result.remarks)
        console.say(file + ":" + std::to_string(remark.line), remark.text);
    const ExitCode done = kept(user, console);
    if (done == ExitCode::ok)
        console.say(file, std::to_string(result.values) + " values and " +
                              std::to_string(result.presets) + " presets taken");
    return done;
}

// -- Presets -----------------------------------------------------------------------------------

ExitCode PresetCommands::list() {
    const UserSettings user = openFor(console);
    const std::string active = activePreset(*user.store);
    for (const std::string& name : user.presets->names())
        print(name == active ? name + "\tactive" : name);
    return ExitCode::ok;
}

ExitCode PresetCommands::save(const std::string& name) {
    if (!isPresetName(name)) {
        console.say("'" + name + "' is no name for a preset");
        return ExitCode::usage;
    }
    UserSettings user = openFor(console);
    if (user.place.empty()) return kept(user, console);
    if (savePreset(*user.presets, name, *user.store)) return ExitCode::ok;
    console.say("the preset '" + name + "' cannot be written");
    return ExitCode::failed;
}

ExitCode PresetCommands::load(const std::string& name) {
    UserSettings user = openFor(console);
    if (!loadPreset(*user.presets, name, *user.store)) {
        console.say("there is no preset '" + name + "'; 'velorine presets list' names all");
        return ExitCode::failed;
    }
    setActivePreset(*user.store, name);
    return kept(user, console);
}

ExitCode PresetCommands::remove(const std::string& name) {
    UserSettings user = openFor(console);
    if (!user.presets->remove(name)) {
        console.say("there is no preset '" + name + "'; 'velorine presets list' names all");
        return ExitCode::failed;
    }
    if (activePreset(*user.store) == name) setActivePreset(*user.store, "");
    return kept(user, console);
}

} // namespace velorine
