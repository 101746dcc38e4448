#pragma once

namespace velorine {

/// Adds a straight line to a sampled curve: `bins[k]` gets the line's integral over the part of
/// `[k, k + 1)` that it covers. A sum of abutting lines is thus a piecewise-linear curve by its
/// mean over each bin, free of aliasing however short the lines.
///
/// @param bins    the curve, `count` values
/// @param x0, x1  ends of the line, in bins, `x0 <= x1`
/// @param y0, y1  its values there
void integrateRamp(float* bins, int count, float x0, float x1, float y0, float y1);

} // namespace velorine
