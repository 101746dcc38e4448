#pragma once

#include <string>

namespace velorine {

/// The folder of recordings that no other path was named for, with a slash at its end.
///
/// Windows: "d:/velorine/". Elsewhere "Velorine/" in the user's music folder, which is
/// `$XDG_MUSIC_DIR`, else what user-dirs.dirs says, else `~/Music`; without a home directory it is
/// "Velorine/" in the working folder. Only asks, makes nothing. Any thread.
std::string recordingsFolder();

} // namespace velorine
