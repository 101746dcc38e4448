#pragma once

namespace velorine {

/// Modified Bessel function of the first kind, order 0. Within 2e-7 of itself.
///
/// Abramowitz & Stegun, "Handbook of Mathematical Functions", 9.8.1 and 9.8.2.
double besselI0(double x);

/// Order 1, for `x` >= 0, as a rational form. Within 7e-7 of itself.
double besselI1(double x);

} // namespace velorine
