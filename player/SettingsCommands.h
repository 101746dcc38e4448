#pragma once

#include "player/ExitCode.h"

#include <string>

namespace velorine {

class Console;

/// The settings of this machine, on the command line. Data goes to stdout.
class SettingsCommands {
public:
    explicit SettingsCommands(Console& messages) : console(messages) {}

    /// All settings, or those of one section: "SECTION/KEY=VALUE", "set" or "default", and the
    /// meaning, with tabs between.
    ExitCode list(const std::string& section);
    ExitCode get(const std::string& name);
    ExitCode set(const std::string& assignment);
    ExitCode unset(const std::string& name);
    ExitCode path();
    ExitCode check();
    ExitCode exportTo(const std::string& file);
    ExitCode importFrom(const std::string& file);

private:
    Console& console;
};

/// The user's named presets, likewise.
class PresetCommands {
public:
    explicit PresetCommands(Console& messages) : console(messages) {}

    ExitCode list(); ///< names; the one that each start loads is marked on a terminal
    ExitCode save(const std::string& name);

    /// Makes it the sound of now and of each start.
    ExitCode load(const std::string& name);
    ExitCode remove(const std::string& name);

private:
    Console& console;
};

} // namespace velorine
