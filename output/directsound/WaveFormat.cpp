#include "output/directsound/WaveFormat.h"

namespace velorine {

namespace {

constexpr int floatTag = 3;

/// The sub-formats of PCM and of float differ in their first member alone, which is the tag.
GUID subFormat(DWORD tag) {
    return {tag, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71}};
}

bool isPlain(const SoundSystem::Format& format, int containerBits) {
    if (format.formatTag == floatTag || containerBits > 16) return false;
    const int mask = format.channelMask;
    return (format.channels == 1 && (mask == 0 || mask == 4)) ||
           (format.channels == 2 && (mask == 0 || mask == 3));
}

} // namespace

WAVEFORMATEXTENSIBLE waveFormat(const SoundSystem::Format& format) {
    const int bytes = (format.containerBits + 7) / 8;
    const int containerBits = bytes * 8;
    const int blockAlign = format.channels * bytes;
    const bool isValid = format.validBits >= 1 && format.validBits <= containerBits;

    WAVEFORMATEXTENSIBLE wave{};
    wave.Format.nChannels = static_cast<WORD>(format.channels);
    wave.Format.nSamplesPerSec = static_cast<DWORD>(format.rate);
    wave.Format.nAvgBytesPerSec = static_cast<DWORD>(format.rate * blockAlign);
    wave.Format.nBlockAlign = static_cast<WORD>(blockAlign);
    wave.Format.wBitsPerSample = static_cast<WORD>(containerBits);
    if (isPlain(format, containerBits)) {
        wave.Format.wFormatTag = WAVE_FORMAT_PCM;
        return wave;
    }
    wave.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    wave.Format.cbSize = 22;
    wave.Samples.wValidBitsPerSample =
        static_cast<WORD>(isValid ? format.validBits : containerBits);
    wave.dwChannelMask = static_cast<DWORD>(format.channelMask);
    wave.SubFormat =
        subFormat(format.formatTag == floatTag ? WAVE_FORMAT_IEEE_FLOAT : WAVE_FORMAT_PCM);
    return wave;
}

} // namespace velorine
