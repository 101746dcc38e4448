#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace velorine::test {

/// A place where a signal bends faster than its programme can.
struct Click {
    std::size_t frame = 0;
    double height = 0; ///< of the second difference, in the signal's unit
};

/// Largest second difference of a sine of this amplitude: 4 A sin^2(w / 2), with w its radians per
/// frame.
double bendOfSine(double amplitude, double hz, int rate);

/// What a fade over `frames` frames adds to the bend of what it fades: the steepest step of its law
/// stands at an end, 1 / n where it is linear and sqrt(0.5 / n) with equal power, and meets the
/// programme's level there and its slope.
double bendOfFade(double amplitude, double hz, int rate, double frames, bool linear);

/// All frames at which the second difference is above `bound`.
std::vector<Click> clicksIn(std::span<const double> signal, double bound);

} // namespace velorine::test
