#pragma once

#include <string>

namespace velorine {

class SoundSystem;

/// What `--device` takes, a line each, the default device first and the null target last: its name,
/// a tab, and what it is.
///
/// @param sound  null: there is no sound system
std::string deviceList(SoundSystem* sound);

} // namespace velorine
