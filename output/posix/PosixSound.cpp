#include "output/MachineSound.h"
#include "output/pulse/PulseSound.h"

namespace velorine {

std::unique_ptr<SoundSystem> machineSound() {
    const PulseLibrary* const pulse = PulseLibrary::load();
    if (!pulse) return nullptr;
    return std::make_unique<PulseSound>(*pulse);
}

} // namespace velorine
