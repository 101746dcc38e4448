#include "player/DeviceList.h"

#include "output/SoundSystem.h"

namespace velorine {

std::string deviceList(SoundSystem* sound) {
    std::string list;
    if (sound)
        for (const SoundSystem::Device& device : sound->devices())
            list +=
                device.description + (device.guid.empty() ? "\tdefault device\n" : "\tdevice\n");
    return list + "None\tnull target: plays in real time, and silently\n";
}

} // namespace velorine
