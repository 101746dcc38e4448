#pragma once

#include <string>

namespace velorine {

/// Stream format as a host opens the module with it.
struct HostFormat {
    int rate = 0; ///< Hz
    int channels = 0;
    int bits = 0; ///< 8 (unsigned), 16, 24, 32, or 64 for double

    int bytesPerFrame() const noexcept { return bits / 8 * channels; }

    friend bool operator==(const HostFormat&, const HostFormat&) = default;
};

/// Depth in which a file is handed to the module: integer files keep their own, everything else
/// (float, and whatever a lossy codec computes) goes as double.
///
/// @param sndfileFormat  `format` of libsndfile's SF_INFO
int hostBitsFor(int sndfileFormat) noexcept;

/// "44100 Hz 16-bit stereo"
std::string describe(const HostFormat& format);

/// "mono", "stereo", "6 channels"
std::string channelsText(int channels);

} // namespace velorine
