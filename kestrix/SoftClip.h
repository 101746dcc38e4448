#pragma once

namespace velorine {

/// Peak of a pair below which the soft clip leaves it alone: -3 dB. From its inverse on the curve
/// is flat at full scale.
inline constexpr float softClipStart = 0.70794578438413791F;

/// The soft clip's curve: the identity below -3 dB, a parabola in dB between -3 and +3 dB that ends
/// flat at 0 dB, full scale above. An input of 0 dB yields -0.75 dB.
///
/// @param x  0 and above
double softClipSample(double x);

} // namespace velorine
