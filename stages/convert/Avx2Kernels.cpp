#include "stages/convert/ConvertKernels.h"

#include <immintrin.h>

namespace velorine {

namespace {

using Bytes = std::uint8_t;

__m128i loadFour(const std::int32_t* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

void storeFour(__m128i words, void* to) {
    _mm_storeu_si128(static_cast<__m128i*>(to), words);
}

/// Each source yields four samples at once as doubles; the last ones, by a copy that is padded.
struct FromBytes {
    static constexpr int bytes = 1;
    static __m256d four(const Bytes* from) {
        const __m128i words = _mm_cvtepu8_epi32(_mm_loadu_si32(from));
        return _mm256_cvtepi32_pd(_mm_sub_epi32(words, _mm_set1_epi32(128)));
    }
};

struct From16 {
    static constexpr int bytes = 2;
    static __m256d four(const Bytes* from) {
        return _mm256_cvtepi32_pd(
            _mm_cvtepi16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from))));
    }
};

struct From24 {
    static constexpr int bytes = 3;
    static __m256d four(const Bytes* from) {
        const __m128i packed = _mm_unpacklo_epi64(
            _mm_loadl_epi64(reinterpret_cast<const __m128i*>(from)), _mm_loadu_si32(from + 8));
        const __m128i high = _mm_shuffle_epi8(
            packed, _mm_setr_epi8(-1, 0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11));
        return _mm256_cvtepi32_pd(_mm_srai_epi32(high, 8));
    }
};

struct From32 {
    static constexpr int bytes = 4;
    static __m256d four(const Bytes* from) {
        return _mm256_cvtepi32_pd(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
    }
};

struct FromFloat {
    static constexpr int bytes = 4;
    static __m256d four(const Bytes* from) {
        return _mm256_cvtps_pd(_mm_loadu_ps(reinterpret_cast<const float*>(from)));
    }
};

struct FromDouble {
    static constexpr int bytes = 8;
    static __m256d four(const Bytes* from) {
        return _mm256_loadu_pd(reinterpret_cast<const double*>(from));
    }
};

template <typename Source>
void readSamples(const void* from, int samples, double gain, double* to) {
    const auto* sample = static_cast<const Bytes*>(from);
    const __m256d factor = _mm256_set1_pd(gain);
    int i = 0;
    for (; i + 4 <= samples; i += 4, sample += 4 * Source::bytes)
        _mm256_storeu_pd(to + i, _mm256_mul_pd(Source::four(sample), factor));
    if (i == samples) return;

    alignas(32) Bytes last[4 * Source::bytes] = {};
    alignas(32) double values[4];
    for (int k = 0; k < (samples - i) * Source::bytes; ++k)
        last[k] = sample[k];
    _mm256_store_pd(values, _mm256_mul_pd(Source::four(last), factor));
    for (int k = 0; i < samples; ++k, ++i)
        to[i] = values[k];
}

struct Quantiser {
    explicit Quantiser(const WordLimits& limits)
        : low(_mm256_set1_pd(limits.low)), high(_mm256_set1_pd(limits.high)),
          top(_mm_set1_epi32(limits.top)), cap(_mm_set1_epi32(limits.cap)),
          shift(_mm_cvtsi32_si128(limits.shift)) {}

    template <bool Shifts>
    [[gnu::always_inline]] __m128i four(const double* x, const double* dither) const {
        const __m256d value = _mm256_loadu_pd(x);
        const __m256d number = _mm256_and_pd(value, _mm256_cmp_pd(value, value, _CMP_ORD_Q));
        const __m256d sum = _mm256_add_pd(number, _mm256_loadu_pd(dither));
        const __m128i q = _mm256_cvtpd_epi32(_mm256_min_pd(_mm256_max_pd(sum, low), high));
        if constexpr (!Shifts) return q;
        return _mm_blendv_epi8(_mm_sll_epi32(q, shift), cap, _mm_cmpgt_epi32(q, top));
    }

    __m256d low;
    __m256d high;
    __m128i top;
    __m128i cap;
    __m128i shift;
};

template <bool Shifts>
void quantiseSamples(const double* x, const double* dither, int samples, const WordLimits& limits,
                     std::int32_t* to) {
    const Quantiser quantiser{limits};
    int i = 0;
    for (; i + 4 <= samples; i += 4)
        storeFour(quantiser.four<Shifts>(x + i, dither + i), to + i);
    if (i == samples) return;

    double lastX[4] = {};
    double lastDither[4] = {};
    std::int32_t words[4];
    for (int k = 0; k < samples - i; ++k) {
        lastX[k] = x[i + k];
        lastDither[k] = dither[i + k];
    }
    storeFour(quantiser.four<Shifts>(lastX, lastDither), words);
    for (int k = 0; i < samples; ++k, ++i)
        to[i] = words[k];
}

void quantise(const double* x, const double* dither, int samples, const WordLimits& limits,
              std::int32_t* to) {
    if (limits.shift == 0)
        quantiseSamples<false>(x, dither, samples, limits, to);
    else
        quantiseSamples<true>(x, dither, samples, limits, to);
}

/// Each destination takes eight words at once.
struct ToBytes {
    static constexpr int bytes = 1;
    static void eight(__m128i a, __m128i b, Bytes* to) {
        const __m128i words = _mm_packs_epi32(a, b);
        const __m128i packed = _mm_packs_epi16(words, words);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(to),
                         _mm_xor_si128(packed, _mm_set1_epi8(-128)));
    }
};

struct To16 {
    static constexpr int bytes = 2;
    static void eight(__m128i a, __m128i b, Bytes* to) { storeFour(_mm_packs_epi32(a, b), to); }
};

struct To24 {
    static constexpr int bytes = 3;
    static void eight(__m128i a, __m128i b, Bytes* to) {
        four(a, to);
        four(b, to + 12);
    }

private:
    static void four(__m128i words, Bytes* to) {
        const __m128i packed = _mm_shuffle_epi8(
            words, _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(to), packed);
        _mm_storeu_si32(to + 8, _mm_srli_si128(packed, 8));
    }
};

struct To32 {
    static constexpr int bytes = 4;
    static void eight(__m128i a, __m128i b, Bytes* to) {
        storeFour(a, to);
        storeFour(b, to + 16);
    }
};

template <typename Destination>
void writeWords(const std::int32_t* from, int samples, void* to) {
    auto* sample = static_cast<Bytes*>(to);
    int i = 0;
    for (; i + 8 <= samples; i += 8, sample += 8 * Destination::bytes)
        Destination::eight(loadFour(from + i), loadFour(from + i + 4), sample);
    if (i == samples) return;

    alignas(16) std::int32_t last[8] = {};
    alignas(16) Bytes packed[8 * Destination::bytes] = {};
    for (int k = 0; k < samples - i; ++k)
        last[k] = from[i + k];
    Destination::eight(loadFour(last), loadFour(last + 4), packed);
    for (int k = 0; k < (samples - i) * Destination::bytes; ++k)
        sample[k] = packed[k];
}

void writeFloat32(const double* from, int samples, void* to) {
    auto* sample = static_cast<Bytes*>(to);
    int i = 0;
    for (; i + 4 <= samples; i += 4, sample += 16)
        _mm_storeu_ps(reinterpret_cast<float*>(sample), _mm256_cvtpd_ps(_mm256_loadu_pd(from + i)));
    for (; i < samples; ++i, sample += 4) {
        const __m128 value = _mm_cvtsd_ss(_mm_setzero_ps(), _mm_load_sd(from + i));
        _mm_storeu_si32(sample, _mm_castps_si128(value));
    }
}

void writeFloat64(const double* from, int samples, void* to) {
    __builtin_memcpy(to, from, static_cast<std::size_t>(samples) * sizeof(double));
}

constexpr ConvertKernels kernelsWith(DitherTo16 ditherTo16, RefillAndDitherTo16 refillAndDitherTo16,
                                     const char* name) {
    return {
        .read = {readSamples<FromBytes>, readSamples<From16>, readSamples<From24>,
                 readSamples<From32>, readSamples<From32>, readSamples<FromFloat>,
                 readSamples<FromDouble>},
        .quantise = quantise,
        .writeWords = {writeWords<ToBytes>, writeWords<To16>, writeWords<To24>, writeWords<To32>,
                       writeWords<To32>},
        .writeFloats = {writeFloat32, writeFloat64},
        .ditherTo16 = ditherTo16,
        .refillAndDitherTo16 = refillAndDitherTo16,
        .shapePair = shapePairAvx2,
        .name = name,
    };
}

} // namespace

constinit const ConvertKernels avx2ConvertKernels =
    kernelsWith(ditherTo16Avx2, refillAndDitherTo16Avx2, "avx2");
constinit const ConvertKernels avx512ConvertKernels =
    kernelsWith(ditherTo16Avx512, refillAndDitherTo16Avx512, "avx512");

} // namespace velorine
