#pragma once

#include <memory>

namespace velorine {

class SoundSystem;

/// The machine's own sound system, not yet connected; null where there is none.
std::unique_ptr<SoundSystem> machineSound();

} // namespace velorine
