#pragma once

#include <string>
#include <vector>

namespace velorine {

/// One curve of a picture.
struct SpectrumCurve {
    std::string label;
    std::vector<double> power; ///< by bin, from 0 Hz to half the rate
};

/// Draws mean magnitude, in dB, over frequency, on a logarithmic axis from 20 Hz to half the rate
/// or 20 kHz, into a PNG file.
///
/// @return whether the file could be written
bool drawSpectra(const std::string& path, const std::string& title, int rate,
                 const std::vector<SpectrumCurve>& curves);

} // namespace velorine
