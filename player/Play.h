#pragma once

#include "host/ModuleOptions.h"
#include "player/ExitCode.h"

#include <string>
#include <vector>

namespace velorine {

class Console;

struct PlayRequest {
    std::vector<std::string> files;
    std::vector<ModuleOptions::Setting> settings; ///< for this run
    std::string device;                           ///< empty: as the settings say
    bool null = false;                            ///< no device
};

/// Plays files in order, without gaps, until the last has been heard or a person ends it.
ExitCode play(const PlayRequest& request, Console& console);

} // namespace velorine
