#pragma once

#include <cstdint>

namespace velorine {

// The loops of a conversion, which runs in passes over a short run of samples: read to double, add
// what is to be added, round to integers, write. Each pass comes in several forms, for what the
// processor can do; all of them yield the same bits. Samples may lie at any address.
//
// Included by files that are built for wider instructions: nothing inline belongs here.

/// Samples side by side in memory, times `gain`.
using ReadSamples = void (*)(const void* from, int samples, double gain, double* to);

/// What an integer result is held to.
struct WordLimits {
    double low;       ///< of the rounded value, in valid LSBs
    double high;      ///< the same; one above `top` where the shift comes before the limit
    std::int32_t top; ///< largest value that can be shifted
    std::int32_t cap; ///< what a larger one becomes
    int shift;        ///< unused low bits
};

/// `x + dither` rounded to nearest, ties to even, and limited. In `x` not-a-number counts as 0.
using QuantiseSamples = void (*)(const double* x, const double* dither, int samples,
                                 const WordLimits& limits, std::int32_t* to);

using WriteWords = void (*)(const std::int32_t* from, int samples, void* to);
using WriteFloats = void (*)(const double* from, int samples, void* to);

/// Float to 16 bits in one go, with dither and the headroom for it, from as yet untempered words of
/// the generator, two a sample.
using DitherTo16 = void (*)(const std::uint8_t* from, const std::uint32_t* words, int samples,
                            std::uint8_t* to);

/// The same for 312 samples, with the words of a generator whose state is `spent`.
using RefillAndDitherTo16 = void (*)(std::uint32_t* state, const std::uint8_t* from,
                                     std::uint8_t* to);

/// The noise shaper's filter, laid out for blocks of four frames in two channels: 128 bits a
/// channel, and in those one number for each frame of the block.
struct ShaperTables {
    static constexpr int behind = 24; ///< errors of a channel that lie behind a block
    static constexpr int window = 28; ///< the same, and those of the block

    /// For each frame of the next block: the taps for the errors behind this one, in eights.
    alignas(32) std::int16_t past[4][behind / 8][16];
    /// For each error of this block: its taps in the frames of the next, a 0 behind each.
    alignas(32) std::int16_t next[4][16];
    /// For each error of this block but the last: its taps in this block, 0 up to its own frame.
    alignas(32) std::int16_t within[3][16];
};

/// What two shaped channels carry from block to block.
struct ShapedPair {
    std::int16_t errors[2][ShaperTables::window]; ///< 2^-14 LSB, the newest last
    std::int32_t feedback[2];                     ///< filter sums of the last frame, 2^-26 LSB
};

/// Rounds two channels with error feedback, in blocks of four frames.
///
/// @param x, dither  the channels interleaved, in valid LSBs
/// @param frames     a multiple of 4
/// @return frames done, a multiple of 4: stops before a block that has a sample beyond 2^24 LSB
using ShapePair = int (*)(const ShaperTables& tables, const double* x, const double* dither,
                          int frames, const WordLimits& limits, ShapedPair& pair, std::int32_t* to);

/// One sample of the shaped loop.
struct ShapedSample {
    std::int64_t q; ///< in valid LSBs, not limited
    float error;    ///< of the rounding, LSB
};

/// Rounds `x` plus the filter's sum `feedback`, in 2^-26 LSB, plus `dither`.
ShapedSample shapeSample(double x, std::int32_t feedback, double dither);

/// A sample's error as the filter's history has it, in 2^-14 LSB.
std::int16_t errorWord(float error);

struct ConvertKernels {
    ReadSamples read[7]; ///< by sample type
    QuantiseSamples quantise;
    WriteWords writeWords[5];                ///< by sample type
    WriteFloats writeFloats[2];              ///< 32 and 64 bits
    DitherTo16 ditherTo16;                   ///< null: in passes
    RefillAndDitherTo16 refillAndDitherTo16; ///< the same
    ShapePair shapePair;                     ///< null: sample by sample
    const char* name;
};

void ditherTo16Avx2(const std::uint8_t* from, const std::uint32_t* words, int samples,
                    std::uint8_t* to);
void ditherTo16Avx512(const std::uint8_t* from, const std::uint32_t* words, int samples,
                      std::uint8_t* to);
void refillAndDitherTo16Avx2(std::uint32_t* state, const std::uint8_t* from, std::uint8_t* to);
void refillAndDitherTo16Avx512(std::uint32_t* state, const std::uint8_t* from, std::uint8_t* to);
int shapePairAvx2(const ShaperTables& tables, const double* x, const double* dither, int frames,
                  const WordLimits& limits, ShapedPair& pair, std::int32_t* to);

extern const ConvertKernels plainConvertKernels;
extern const ConvertKernels avx2ConvertKernels;
extern const ConvertKernels avx512ConvertKernels;

/// The best set for a processor with these `cpuFeature` bits.
const ConvertKernels& convertKernels(std::uint32_t features);

} // namespace velorine
