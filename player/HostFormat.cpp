#include "player/HostFormat.h"

#include <sndfile.h>

namespace velorine {

int hostBitsFor(int sndfileFormat) noexcept {
    switch (sndfileFormat & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
        return 8;
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_ALAC_16:
        return 16;
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_ALAC_20:
    case SF_FORMAT_ALAC_24:
        return 24;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_ALAC_32:
        return 32;
    default:
        return 64;
    }
}

std::string describe(const HostFormat& format) {
    const std::string depth = format.bits == 64 ? "double" : std::to_string(format.bits) + "-bit";
    return std::to_string(format.rate) + " Hz " + depth + " " + channelsText(format.channels);
}

std::string channelsText(int channels) {
    if (channels == 1) return "mono";
    if (channels == 2) return "stereo";
    return std::to_string(channels) + " channels";
}

} // namespace velorine
