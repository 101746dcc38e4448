#include "kestrix/BandDynamics.h"

#include "kestrix/FrameSizes.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace velorine {

namespace {

/// Below it a level is silence, and no logarithm of it is taken.
constexpr double silence = 1e-10;

constexpr double kneeWidth = 0.5; ///< dB on each side of the limit

double toDb(double level) {
    return 20.0 * std::log10(level);
}

double fromDb(double db) {
    return std::pow(10.0, db / 20.0);
}

/// Identity up to `kneeWidth` below `limit`, flat on it from `kneeWidth` above it.
double limited(double db, double limit) {
    const double knee = limit - kneeWidth;
    if (!(db > knee)) return db;
    const double t = (db - knee) / kneeWidth;
    const double rise = t < 2.0 ? t - 0.5 * t * 0.5 * t : 1.0;
    return knee + rise * kneeWidth;
}

} // namespace

double BandDynamics::measure(int b, double energy, double difference) {
    const double spread = energy > 0.0 ? std::min(difference / energy, 1.0) : 0.0;
    const double keep = energy < smoothEnergy[b] ? 0.8 : 0.0;
    stereoSpread[b] = stereoSpread[b] * keep + spread * (1.0 - keep);
    smoothEnergy[b] = keep * smoothEnergy[b] + (1.0 - keep) * energy;

    static const double release = std::pow(0.9, frameMs / 20.0);
    const double level = std::sqrt(energy);
    if (level <= fastLevel[b])
        fastLevel[b] = (1.0 - release) * level + fastLevel[b] * release;
    else
        fastLevel[b] = level;
    return level;
}

void BandDynamics::followReference(const KestrixParameters& parameters) {
    for (int b = 0; b < kestrixBands; ++b) {
        // Up slower than down: after an attack the reference creeps up to the level.
        const double falling = std::pow(parameters.trans[b].length * 0.95, frameMs / 85.0);
        const double distance = fastLevel[b] - slowLevel[b];
        const double keep = distance >= 0.0 ? std::sqrt(falling) : falling;
        slowLevel[b] += (1.0 - keep) * distance;
    }
}

void BandDynamics::restart() {
    std::fill(std::begin(slowLevel), std::end(slowLevel), 1.0);
}

double BandDynamics::gain(int b, const KestrixParameters& parameters, double amount) const {
    if (!parameters.bandEnabled[b]) return 0.0;
    const double headroom = fromDb(-parameters.headroom);
    if (headroom * fastLevel[b] <= silence) return 1.0;
    return bandGainLaw(b, parameters, amount, headroom) / headroom / fastLevel[b];
}

/// The level that comes out for the fast level that goes in. The filters hold the headroom, so the
/// law starts below it.
double BandDynamics::bandGainLaw(int b, const KestrixParameters& parameters, double amount,
                                 double headroom) const {
    const auto withOffset = [b](const double(&values)[kestrixBands + 1]) {
        return values[globalOffset] + values[b];
    };
    // 3 dB: from here on a full-scale sine in one channel is 0 dB.
    const double v = toDb(headroom * fastLevel[b]) + 3.0;
    const double slope = 1.0 - std::min(1.0, withOffset(parameters.compr)) * amount;
    const double threshold =
        3.0 + parameters.comprlim[globalOffset] - parameters.headroom + parameters.comprlim[b];
    const double w = v <= threshold ? slope * threshold + (v - threshold) : slope * v;
    const double attenuation = fromDb(withOffset(parameters.atten) * amount);
    double y = fromDb(w - 3.0) * attenuation;
    if (y <= silence) return y;
    y *= liftOfTransient(b, parameters, amount);
    if (y <= silence) return y;
    return fromDb(limited(toDb(y), withOffset(parameters.lim)));
}

/// Factor for as long as the fast level stands above the slow one; never below 1.
double BandDynamics::liftOfTransient(int b, const KestrixParameters& parameters,
                                     double amount) const {
    if (!parameters.enabletrans) return 1.0;
    const double steepness = parameters.trans[b].sensitivity * 6.0;
    const double fast = std::pow(fastLevel[b], steepness);
    const double slow = std::pow(slowLevel[b], steepness);
    const double rise = std::max(1.0 - slow / fast, 0.0);
    return 1.0 + rise * parameters.trans[b].amount * 1.6 * 4.0 * amount;
}

} // namespace velorine
