#pragma once

#include "output/SoundSystem.h"
#include "output/directsound/ComPointer.h"
#include "output/directsound/HiddenWindow.h"

#include <windows.h>

#include <dsound.h>

#include <memory>

namespace velorine {

/// DirectSound: its list of devices, and a connection to one of them.
class DirectSoundSystem final : public SoundSystem {
public:
    ~DirectSoundSystem() override;

    std::vector<Device> devices() override;
    bool connected() const override { return connection != nullptr; }
    bool connect(std::string& description, std::string& guid) override;
    void disconnect() override;
    std::unique_ptr<SoundBuffer> createBuffer(const Format& format) override;

private:
    std::unique_ptr<HiddenWindow> window; ///< made with the first connection, gone with the last
    ComPointer<IDirectSound> connection;
    Device connectedTo;
};

} // namespace velorine
