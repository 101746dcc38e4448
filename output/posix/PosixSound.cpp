#include "output/MachineSound.h"

#include "output/SoundSystem.h"

namespace velorine {

std::unique_ptr<SoundSystem> machineSound() {
    return nullptr;
}

} // namespace velorine
