#pragma once

#include "player/ExitCode.h"

namespace velorine {

/// Parses the command line and does what it says. stdout gets the data that was asked for, stderr
/// everything else.
ExitCode runCommandLine(int argc, const char* const* argv);

} // namespace velorine
