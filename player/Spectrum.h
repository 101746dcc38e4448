#pragma once

#include "host/ModuleOptions.h"
#include "player/ExitCode.h"

#include <string>
#include <vector>

namespace velorine {

class Console;

/// What `velorine spectrum` was asked for.
struct SpectrumRequest {
    std::string file;
    std::string output; ///< PNG
    std::vector<ModuleOptions::Setting> settings;
};

/// Draws the mean spectrum of a file before and after the processor, with the settings that a run
/// of the engine would have.
ExitCode drawSpectrum(const SpectrumRequest& request, Console& console);

} // namespace velorine
