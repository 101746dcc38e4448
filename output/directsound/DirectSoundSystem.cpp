#include "output/directsound/DirectSoundSystem.h"

#include "output/MachineSound.h"
#include "output/directsound/DirectSoundBuffer.h"
#include "output/directsound/WaveFormat.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>

namespace velorine {

namespace {

constexpr DWORD bufferFlags =
    DSBCAPS_CTRLPAN | DSBCAPS_CTRLVOLUME | DSBCAPS_GLOBALFOCUS | DSBCAPS_GETCURRENTPOSITION2;
static_assert(bufferFlags == 0x180c0);

std::string textOf(const GUID& guid) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                  guid.Data1, guid.Data2, guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2],
                  guid.Data4[3], guid.Data4[4], guid.Data4[5], guid.Data4[6], guid.Data4[7]);
    return text.data();
}

/// An entry of the system's list; the primary driver has no GUID.
struct Listed {
    SoundSystem::Device device;
    std::optional<GUID> guid;
};

BOOL CALLBACK takeDevice(GUID* guid, const char* description, const char*, void* list)
    __attribute__((force_align_arg_pointer));

BOOL CALLBACK takeDevice(GUID* guid, const char* description, const char*, void* list) {
    Listed entry{{description, guid ? textOf(*guid) : std::string{}}, std::nullopt};
    if (guid) entry.guid = *guid;
    static_cast<std::vector<Listed>*>(list)->push_back(std::move(entry));
    return TRUE;
}

std::vector<Listed> listDevices() {
    std::vector<Listed> list;
    DirectSoundEnumerateA(takeDevice, &list);
    return list;
}

/// By both texts; a person may have written the description alone.
bool matches(const SoundSystem::Device& device, const std::string& description,
             const std::string& guid) {
    return device.description == description && (guid.empty() || device.guid == guid);
}

ComPointer<IDirectSound> create(const Listed& entry) {
    GUID guid = entry.guid.value_or(GUID{});
    IDirectSound* made = nullptr;
    if (DirectSoundCreate(entry.guid ? &guid : nullptr, &made, nullptr) != DS_OK) return nullptr;
    return ComPointer<IDirectSound>{made};
}

} // namespace

DirectSoundSystem::~DirectSoundSystem() {
    disconnect();
}

std::vector<SoundSystem::Device> DirectSoundSystem::devices() {
    std::vector<Device> found;
    for (Listed& entry : listDevices())
        found.push_back(std::move(entry.device));
    return found;
}

bool DirectSoundSystem::connect(std::string& description, std::string& guid) {
    const std::vector<Listed> list = listDevices();
    auto chosen = std::find_if(list.begin(), list.end(), [&](const Listed& entry) {
        return matches(entry.device, description, guid);
    });
    const auto choosePrimary = [&] {
        description.clear();
        guid.clear();
        chosen = list.begin();
    };
    if (chosen == list.end()) choosePrimary();
    if (connection && chosen != list.end() && chosen->device == connectedTo) return true;

    connection.reset();
    if (!window) window = std::make_unique<HiddenWindow>();
    if (chosen != list.end()) connection = create(*chosen);
    if (!connection) {
        choosePrimary();
        if (chosen != list.end()) connection = create(*chosen);
    }
    if (!connection) return false;
    connectedTo = chosen->device;
    connection->SetCooperativeLevel(window->handle(), DSSCL_PRIORITY);
    return true;
}

void DirectSoundSystem::disconnect() {
    connection.reset();
    window.reset();
}

std::unique_ptr<SoundBuffer> DirectSoundSystem::createBuffer(const Format& format) {
    if (!connection) return nullptr;
    WAVEFORMATEXTENSIBLE wave = waveFormat(format);
    DSBUFFERDESC description{};
    description.dwSize = sizeof description;
    static_assert(sizeof description == 36);
    description.dwFlags = bufferFlags;
    description.dwBufferBytes = static_cast<DWORD>(format.bufferFrames) * wave.Format.nBlockAlign;
    description.lpwfxFormat = &wave.Format;
    IDirectSoundBuffer* made = nullptr;
    if (connection->CreateSoundBuffer(&description, &made, nullptr) != DS_OK || !made)
        return nullptr;
    return std::make_unique<DirectSoundBuffer>(ComPointer<IDirectSoundBuffer>{made},
                                               wave.Format.nBlockAlign);
}

std::unique_ptr<SoundSystem> machineSound() {
    return std::make_unique<DirectSoundSystem>();
}

} // namespace velorine
