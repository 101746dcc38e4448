#pragma once

#include "host/ModuleOptions.h"
#include "player/ExitCode.h"

#include <string>
#include <vector>

namespace velorine {

class Console;

struct RenderRequest {
    std::vector<std::string> files;
    std::vector<ModuleOptions::Setting> settings; ///< for this run
    std::string output; ///< a file for all of them, or a folder for a file each
};

/// Records files through the module at full speed. A file comes out whole or not at all.
ExitCode render(const RenderRequest& request, Console& console);

} // namespace velorine
