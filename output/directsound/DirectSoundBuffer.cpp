#include "output/directsound/DirectSoundBuffer.h"

namespace velorine {

namespace {

SoundBuffer::Result resultOf(HRESULT result) {
    if (result == DS_OK) return SoundBuffer::Result::ok;
    return result == DSERR_BUFFERLOST ? SoundBuffer::Result::lost : SoundBuffer::Result::failed;
}

} // namespace

SoundBuffer::Result DirectSoundBuffer::lock(int startFrame, int frames, Regions& regions) {
    void* first = nullptr;
    void* second = nullptr;
    DWORD firstBytes = 0;
    DWORD secondBytes = 0;
    const Result result = resultOf(buffer->Lock(bytes(startFrame), bytes(frames), &first,
                                                &firstBytes, &second, &secondBytes, 0));
    regions = {};
    if (result == Result::ok)
        regions = {static_cast<std::byte*>(first), wholeFrames(firstBytes),
                   static_cast<std::byte*>(second), wholeFrames(secondBytes)};
    return result;
}

void DirectSoundBuffer::unlock(const Regions& regions) {
    buffer->Unlock(regions.first, bytes(regions.firstFrames), regions.second,
                   bytes(regions.secondFrames));
}

bool DirectSoundBuffer::playCursor(int& frame) {
    DWORD played = 0;
    if (buffer->GetCurrentPosition(&played, nullptr) != DS_OK) return false;
    frame = wholeFrames(played);
    return true;
}

SoundBuffer::Result DirectSoundBuffer::play() {
    return resultOf(buffer->Play(0, 0, DSBPLAY_LOOPING));
}

void DirectSoundBuffer::stop() {
    buffer->Stop();
}

void DirectSoundBuffer::setPosition(int frame) {
    buffer->SetCurrentPosition(bytes(frame));
}

void DirectSoundBuffer::setVolume(int hundredthsDb) {
    buffer->SetVolume(hundredthsDb);
}

void DirectSoundBuffer::setPan(int hundredthsDb) {
    buffer->SetPan(hundredthsDb);
}

bool DirectSoundBuffer::restore() {
    return buffer->Restore() != DSERR_BUFFERLOST;
}

} // namespace velorine
