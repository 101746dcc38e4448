#pragma once

#include "output/SoundSystem.h"
#include "output/directsound/ComPointer.h"

#include <windows.h>

#include <dsound.h>

namespace velorine {

/// A secondary buffer of DirectSound. Its frames are the interface's bytes divided by the size of a
/// frame; an interface call that fails is answered as `failed`, a lost buffer as `lost`.
class DirectSoundBuffer final : public SoundBuffer {
public:
    DirectSoundBuffer(ComPointer<IDirectSoundBuffer> made, int bytesPerFrame)
        : buffer(std::move(made)), frameBytes(bytesPerFrame) {}

    Result lock(int startFrame, int frames, Regions& regions) override;
    void unlock(const Regions& regions) override;
    bool playCursor(int& frame) override;
    Result play() override;
    void stop() override;
    void setPosition(int frame) override;
    void setVolume(int hundredthsDb) override;
    void setPan(int hundredthsDb) override;
    bool restore() override;

private:
    DWORD bytes(int frames) const { return static_cast<DWORD>(frames * frameBytes); }
    int wholeFrames(DWORD byteCount) const { return static_cast<int>(byteCount) / frameBytes; }

    ComPointer<IDirectSoundBuffer> buffer;
    const int frameBytes;
};

} // namespace velorine
