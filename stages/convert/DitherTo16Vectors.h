#pragma once

#include "foundation/Mt19937Vectors.h"

// Float to 16 bits with dither, in whole numbers of 2^-15 LSB, eight 32-bit lanes to a vector. That
// is coarser than the doubles of the plain form, yet settles the rounding except next to a tie.
// Vectors with a sample there, three in a thousand, or with one beyond twice full scale are done
// again in doubles.
//
// For files that are built for AVX2 or more: each has its own copy, which the linker can't take
// for another's.

namespace velorine {
namespace {

inline constexpr int unitBits = 15; ///< of an LSB
inline constexpr int unitMask = (1 << unitBits) - 1;

/// Units by which a sum may be off: half of one for either part of the sample, below two for the
/// dither, whose two draws both lose their low bits.
inline constexpr int tieZone = 3;

struct UnitSums {
    __m256i units; ///< sample and dither, with half an LSB for the rounding, and `tieZone`
    __m256i most;  ///< the sample; the lowest number there is from twice full scale on
};

/// Of samples 0 1 4 5 2 3 6 7: so the two draws of a difference come apart in one step.
[[gnu::always_inline]] inline UnitSums sumEight(const std::uint8_t* from, __m256i firstWords,
                                                __m256i lastWords) {
    const __m256 low = _mm256_castsi256_ps(temperHigh(firstWords));
    const __m256 high = _mm256_castsi256_ps(temperHigh(lastWords));
    const __m256 a = _mm256_shuffle_ps(low, high, _MM_SHUFFLE(2, 0, 2, 0));
    const __m256 b = _mm256_shuffle_ps(low, high, _MM_SHUFFLE(3, 1, 3, 1));
    const __m256i dither =
        _mm256_sub_epi32(_mm256_srli_epi32(_mm256_castps_si256(a), 32 - unitBits),
                         _mm256_srli_epi32(_mm256_castps_si256(b), 32 - unitBits));

    // 32766.5 LSB as 2^15 - 1.5: the power of two is exact.
    const __m256 value = _mm256_castpd_ps(_mm256_permute4x64_pd(
        _mm256_loadu_pd(reinterpret_cast<const double*>(from)), _MM_SHUFFLE(3, 1, 2, 0)));
    const __m256i most = _mm256_cvtps_epi32(_mm256_mul_ps(value, _mm256_set1_ps(0x1p30f)));
    const __m256i less = _mm256_cvtps_epi32(_mm256_mul_ps(value, _mm256_set1_ps(0x1.8p15f)));
    const __m256i bias = _mm256_set1_epi32((1 << (unitBits - 1)) + tieZone);
    return {_mm256_add_epi32(_mm256_add_epi32(dither, most), _mm256_sub_epi32(bias, less)), most};
}

[[gnu::always_inline]] inline bool isSettled(const UnitSums& a, const UnitSums& b) {
    const __m256i mask = _mm256_set1_epi32(unitMask);
    const __m256i part =
        _mm256_min_epi32(_mm256_and_si256(a.units, mask), _mm256_and_si256(b.units, mask));
    const __m256i nearTie = _mm256_cmpgt_epi32(_mm256_set1_epi32(2 * tieZone), part);
    const __m256i tooBig =
        _mm256_cmpeq_epi32(_mm256_min_epi32(a.most, b.most), eachWord(0x80000000u));
    return _mm256_movemask_epi8(_mm256_or_si256(nearTie, tooBig)) == 0;
}

/// Four samples in the plain form's arithmetic.
[[gnu::always_inline]] inline __m128i roundFour(const std::uint8_t* from, __m256i words) {
    const __m256d value = _mm256_cvtps_pd(_mm_loadu_ps(reinterpret_cast<const float*>(from)));
    const __m256d number = _mm256_and_pd(value, _mm256_cmp_pd(value, value, _CMP_ORD_Q));
    const __m256d sum =
        _mm256_add_pd(_mm256_mul_pd(number, _mm256_set1_pd(32766.5)), triangularFour(words));
    return _mm256_cvtpd_epi32(
        _mm256_min_pd(_mm256_max_pd(sum, _mm256_set1_pd(-32768.0)), _mm256_set1_pd(32767.0)));
}

[[gnu::always_inline]] inline void roundEight(const std::uint8_t* from, __m256i firstWords,
                                              __m256i lastWords, std::uint8_t* to) {
    const __m128i packed =
        _mm_packs_epi32(roundFour(from, firstWords), roundFour(from + 16, lastWords));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), packed);
}

[[gnu::always_inline]] inline void roundSixteen(const std::uint8_t* from, __m256i w0, __m256i w1,
                                                __m256i w2, __m256i w3, std::uint8_t* to) {
    const UnitSums low = sumEight(from, w0, w1);
    const UnitSums high = sumEight(from + 32, w2, w3);
    if (!isSettled(low, high)) [[unlikely]] {
        roundEight(from, w0, w1, to);
        roundEight(from + 32, w2, w3, to + 16);
        return;
    }
    const __m256i packed = _mm256_packs_epi32(_mm256_srai_epi32(low.units, unitBits),
                                              _mm256_srai_epi32(high.units, unitBits));
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), _mm256_permutevar8x32_epi32(packed, order));
}

[[gnu::always_inline]] inline void ditherTo16Vectors(const std::uint8_t* from,
                                                     const std::uint32_t* words, int samples,
                                                     std::uint8_t* to) {
    for (; samples >= 16; samples -= 16, from += 64, words += 32, to += 32)
        roundSixteen(from, loadWords(words), loadWords(words + 8), loadWords(words + 16),
                     loadWords(words + 24), to);
    for (; samples >= 8; samples -= 8, from += 32, words += 16, to += 16)
        roundEight(from, loadWords(words), loadWords(words + 8), to);
    if (samples == 0) return;

    std::uint8_t lastFrom[32] = {};
    std::uint32_t lastWords[16] = {};
    std::uint8_t lastTo[16];
    for (int i = 0; i < 4 * samples; ++i)
        lastFrom[i] = from[i];
    for (int i = 0; i < 2 * samples; ++i)
        lastWords[i] = words[i];
    roundEight(lastFrom, loadWords(lastWords), loadWords(lastWords + 8), lastTo);
    for (int i = 0; i < 2 * samples; ++i)
        to[i] = lastTo[i];
}

/// Sixteen samples with words that are of the next generation: the first eight by a step `ahead`,
/// the others by `furtherAhead`.
[[gnu::always_inline]] inline void refillAndRoundSixteen(std::uint32_t* state, int ahead,
                                                         int furtherAhead, const std::uint8_t* from,
                                                         std::uint8_t* to) {
    const __m256i w0 = twistEight(state, ahead);
    const __m256i w1 = twistEight(state + 8, furtherAhead);
    const __m256i w2 = twistEight(state + 16, furtherAhead);
    const __m256i w3 = twistEight(state + 24, furtherAhead);
    roundSixteen(from, w0, w1, w2, w3, to);
}

/// The same for 312 samples with a refill on the way: either keeps units busy that the other
/// leaves idle.
[[gnu::always_inline]] inline void
refillAndDitherTo16Vectors(std::uint32_t* state, const std::uint8_t* from, std::uint8_t* to) {
    constexpr int back = middle - generation;
    constexpr int split = wrapped - 8; // the last vector whose words ahead haven't wrapped
    static_assert(split % 32 == 0 && generation % 32 == 16);

    int i = 0;
    for (; i < split; i += 32) {
        refillAndRoundSixteen(state + i, middle, middle, from + 2 * i, to + i);
        if (i == 0) storeWords(loadWords(state), state + generation);
    }
    refillAndRoundSixteen(state + i, middle, back, from + 2 * i, to + i);
    for (i += 32; i + 32 <= generation; i += 32)
        refillAndRoundSixteen(state + i, back, back, from + 2 * i, to + i);

    const __m256i w0 = twistEight(state + i, back);
    const __m256i w1 = twistEight(state + i + 8, back);
    roundEight(from + 2 * i, w0, w1, to + i);
}

} // namespace
} // namespace velorine
