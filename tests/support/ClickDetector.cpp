#include "tests/support/ClickDetector.h"

#include <cmath>
#include <numbers>

namespace velorine::test {

namespace {
double radians(double hz, int rate) {
    return 2 * std::numbers::pi * hz / rate;
}
} // namespace

double bendOfSine(double amplitude, double hz, int rate) {
    const double half = std::sin(radians(hz, rate) / 2);
    return amplitude * 4 * half * half;
}

double bendOfFade(double amplitude, double hz, int rate, double frames, bool linear) {
    const double step = linear ? 1 / frames : std::sqrt(0.5 / frames);
    return amplitude * step * (1 + 2 * radians(hz, rate));
}

std::vector<Click> clicksIn(std::span<const double> signal, double bound) {
    std::vector<Click> clicks;
    for (std::size_t i = 1; i + 1 < signal.size(); ++i) {
        const double bend = std::abs(signal[i - 1] - 2 * signal[i] + signal[i + 1]);
        if (bend > bound) clicks.push_back({i, bend});
    }
    return clicks;
}

} // namespace velorine::test
