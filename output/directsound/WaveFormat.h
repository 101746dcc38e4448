#pragma once

#include "output/SoundSystem.h"

#include <windows.h>

#include <mmreg.h>

namespace velorine {

/// How DirectSound is told of `format`: extensible, but for mono and stereo integers of up to 16
/// bits in their usual places, which every driver knows as plain PCM. Bits are rounded up to whole
/// bytes; valid bits that the container can't hold become the container.
WAVEFORMATEXTENSIBLE waveFormat(const SoundSystem::Format& format);

} // namespace velorine
