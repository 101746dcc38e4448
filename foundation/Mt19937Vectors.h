#pragma once

#include <cstdint>
#include <immintrin.h>

// The generator's bulk work, eight words to a vector. For files that are built for AVX2 or more:
// each has its own copy, which the linker can't take for another's.

namespace velorine {
namespace {

[[gnu::always_inline]] inline __m256i loadWords(const std::uint32_t* from) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
}

[[gnu::always_inline]] inline __m256i eachWord(std::uint32_t value) {
    return _mm256_set1_epi32(static_cast<int>(value));
}

[[gnu::always_inline]] inline void storeWords(__m256i words, std::uint32_t* to) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), words);
}

inline constexpr int generation = 624; ///< words of the state
inline constexpr int middle =
    397; ///< how far ahead the recurrence reaches, or 227 behind once wrapped

/// From which vector on the word `middle` ahead lies behind.
inline constexpr int wrapped = (generation - middle) / 8 * 8 + 8;

/// Words 0 to 7 of the next generation at `state`, which points into it: those `ahead` of them are
/// of the generation before up to its end, and behind it of the next.
[[gnu::always_inline]] inline __m256i twistEight(std::uint32_t* state, int ahead) {
    const __m256i next = loadWords(state + 1);
    const __m256i upper = _mm256_and_si256(loadWords(state), eachWord(0x80000000u));
    const __m256i lower = _mm256_and_si256(next, eachWord(0x7fffffffu));
    const __m256i shifted = _mm256_srli_epi32(_mm256_or_si256(upper, lower), 1);
    const __m256i matrix =
        _mm256_sign_epi32(eachWord(0x9908b0dfu), _mm256_and_si256(next, eachWord(1)));
    const __m256i words =
        _mm256_xor_si256(loadWords(state + ahead), _mm256_xor_si256(shifted, matrix));
    storeWords(words, state);
    return words;
}

/// The state has its first eight words once more behind its last, for the vectors that reach there.
[[gnu::always_inline]] inline __m256i twistFirst(std::uint32_t* state) {
    const __m256i words = twistEight(state, middle);
    storeWords(words, state + generation);
    return words;
}

[[gnu::always_inline]] inline void refillVectors(std::uint32_t* state) {
    twistFirst(state);
    for (int i = 8; i < wrapped; i += 8)
        twistEight(state + i, middle);
    for (int i = wrapped; i < generation; i += 8)
        twistEight(state + i, middle - generation);
}

/// Outputs but for their low 14 bits, which the last step of tempering changes.
[[gnu::always_inline]] inline __m256i temperHigh(__m256i y) {
    y = _mm256_xor_si256(y, _mm256_srli_epi32(y, 11));
    y = _mm256_xor_si256(y, _mm256_and_si256(_mm256_slli_epi32(y, 7), eachWord(0x9d2c5680u)));
    return _mm256_xor_si256(y, _mm256_and_si256(_mm256_slli_epi32(y, 15), eachWord(0xefc60000u)));
}

[[gnu::always_inline]] inline __m256i temperAll(__m256i y) {
    y = temperHigh(y);
    return _mm256_xor_si256(y, _mm256_srli_epi32(y, 18));
}

/// Four draws from eight words.
[[gnu::always_inline]] inline __m256d triangularFour(__m256i words) {
    // A word below the high half of 2^20 is the double 2^20 + word * 2^-32: the difference of two
    // such is exact, and the same as that of the two uniform draws.
    const __m256i exponent = _mm256_set1_epi64x(0x41300000'00000000LL);
    const __m256i tempered = temperAll(words);
    const __m256i a = _mm256_blend_epi32(tempered, exponent, 0xaa);
    const __m256i b = _mm256_or_si256(_mm256_srli_epi64(tempered, 32), exponent);
    return _mm256_sub_pd(_mm256_castsi256_pd(a), _mm256_castsi256_pd(b));
}

[[gnu::always_inline]] inline void triangularVectors(const std::uint32_t* words, int count,
                                                     double* to) {
    int i = 0;
    for (; i + 4 <= count; i += 4)
        _mm256_storeu_pd(to + i, triangularFour(loadWords(words + 2 * i)));
    if (i == count) return;

    std::uint32_t last[8] = {};
    double draws[4];
    for (int k = 0; k < 2 * (count - i); ++k)
        last[k] = words[2 * i + k];
    _mm256_storeu_pd(draws, triangularFour(loadWords(last)));
    for (int k = 0; i < count; ++k, ++i)
        to[i] = draws[k];
}

} // namespace
} // namespace velorine
