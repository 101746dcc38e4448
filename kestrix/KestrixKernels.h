#pragma once

#include <cstdint>

namespace velorine {

// The processor's loops over a frame, each in several forms for what the machine can do. Complex
// values are pairs of floats, real part first, left and right of a packed stereo spectrum or of a
// frame. Arrays may lie at any address unless they are the same one.
//
// Included by files that are built for wider instructions: nothing inline belongs here.

/// A frame times a window, both channels: `to[2 i] = from[2 i] * window[i]`, and the right one.
using WindowPairs = void (*)(const float* from, const float* window, int pairs, float* to);

/// Energy of both channels together in each bin of a packed spectrum, and by how much that of the
/// channels differs. The left channel is the spectrum's conjugate-symmetric part, the right one the
/// rest; twice the square, for the other half of the spectrum.
///
/// @param spectrum    `length` complex values
/// @param energy      `length / 2` values; bin 0 isn't counted and gets 0
/// @param difference  the same
using MeasureBins = void (*)(const float* spectrum, int length, float* energy, float* difference);

/// Sums of `weight * a` and `weight * b`, in double.
using WeightedSums = void (*)(const float* weight, const float* a, const float* b, int count,
                              double sums[2]);

/// `sum += from * gain`
using AddScaled = void (*)(const float* from, float gain, int count, float* sum);

/// `sum += from`
using AddTo = void (*)(const float* from, int count, float* sum);

/// A spectrum times the half spectrum of a real response, which counts conjugate in the upper half.
///
/// @param spectrum  `length` complex values
/// @param response  `length / 2 + 1` complex values
using ApplyResponse = void (*)(float* spectrum, const float* response, int length);

/// The soft clip: each pair times what brings its peak down to `softClipSample` of it.
using ClipPairs = void (*)(const float* from, int pairs, float* to);

struct KestrixKernels {
    WindowPairs windowPairs;
    MeasureBins measureBins;
    WeightedSums weightedSums;
    AddScaled addScaled;
    AddTo addTo;
    ApplyResponse applyResponse;
    ClipPairs clipPairs;
    std::uint32_t features; ///< `cpuFeature` bits that the set needs
    const char* name;
};

extern const KestrixKernels plainKestrixKernels; ///< the formulas as they are
extern const KestrixKernels sse2KestrixKernels;
extern const KestrixKernels avx2KestrixKernels;

/// The best set for a processor with these `cpuFeature` bits.
const KestrixKernels& kestrixKernels(std::uint32_t features);

} // namespace velorine
