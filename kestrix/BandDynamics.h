#pragma once

#include "kestrix/KestrixParameters.h"

namespace velorine {

/// The detectors of the seven bands and the law that turns a level into a gain: attenuation,
/// compression about a threshold, lift of transients, clip limiter. One number a band and frame.
///
/// Levels are linear; a full-scale sine in both channels is 1. Threads: the pump's.
class BandDynamics {
public:
    /// Takes up a frame's energy in band `b`: the fast level follows.
    ///
    /// @param energy      of both channels
    /// @param difference  sum over the bins of by how much the channels' energies differ
    /// @return the level
    double measure(int b, double energy, double difference);

    /// Lets the slow levels follow the fast ones by half a frame's step.
    void followReference(const KestrixParameters& parameters);

    /// Gain of band `b` for the frame just measured.
    ///
    /// @param amount  0..1: how much of attenuation, compression and transients is applied
    double gain(int b, const KestrixParameters& parameters, double amount) const;

    /// The slow levels stand at full scale, so that the first frames behind a seek are no
    /// transients.
    void restart();

    double fastLevel[kestrixBands] = {};
    double slowLevel[kestrixBands] = {};

    double stereoSpread[kestrixBands] =
        {}; ///< 0 where the channels are alike, 1 where one is silent
    double smoothEnergy[kestrixBands] = {}; ///< measured along; nothing acts on these two

private:
    double bandGainLaw(int b, const KestrixParameters& parameters, double amount,
                       double headroom) const;
    double liftOfTransient(int b, const KestrixParameters& parameters, double amount) const;
};

} // namespace velorine
