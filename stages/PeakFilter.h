#pragma once

namespace velorine {

/// One row of a peak equaliser's table.
struct PeakFilterRow {
    float frequency; ///< Hz
    float q;
    float gainDb; ///< of which the filter applies the negative: -10.3 lifts by 10.3 dB
    bool active;
};

/// y = c0 x + c1 x1 + c2 x2 + c3 y1 + c4 y2: the feedback's signs are in the coefficients.
struct BiquadCoefs {
    float c0 = 1.0F;
    float c1 = 0.0F;
    float c2 = 0.0F;
    float c3 = 0.0F;
    float c4 = 0.0F;
    bool active = false;
};

/// What a section remembers of one channel.
struct BiquadState {
    float x1 = 0.0F;
    float x2 = 0.0F;
    float y1 = 0.0F;
    float y2 = 0.0F;
};

/// The peaking filter of `row` at `rate` Hz; a frequency above half the rate becomes that.
///
/// After R. Bristow-Johnson, "Cookbook formulae for audio equalizer biquad filter coefficients",
/// with Q over the square root of the gain: a lift and a cut have the same skirts.
BiquadCoefs designPeak(const PeakFilterRow& row, int rate);

/// Filters `frames` stereo frames in place, in direct form I and single precision. What has died
/// away, 560 dB below full scale, becomes silence: numbers much smaller take the processor a
/// hundred times as long.
void filterPairs(const BiquadCoefs& coefs, BiquadState (&states)[2], float* pairs, int frames);

} // namespace velorine
