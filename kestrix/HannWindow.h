#pragma once

namespace velorine {

/// Raised cosine: 0 at `t` <= 0 and >= 1, 1 in the middle. Two at half overlap sum to 1.
double hann(double t);

} // namespace velorine
