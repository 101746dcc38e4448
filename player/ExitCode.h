#pragma once

namespace velorine {

/// How the program ended, for the shell.
enum class ExitCode : int {
    ok = 0,
    failed = 1,
    usage = 2,         ///< the command line makes no sense
    someFailed = 3,    ///< some of the files could not be played, or not to their end
    interrupted = 130, ///< as a shell reports SIGINT
};

} // namespace velorine
