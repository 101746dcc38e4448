#include "stages/FadeKernels.h"

#include <immintrin.h>

namespace velorine {

namespace {

// Equal power is a matter of extended precision. Doubles are as good wherever all that the exact
// result could be rounds to one sample: between them lie at most 5.5 roundings, 2^-50.5 of the
// sides' levels. Four frames in which it doesn't are left to the form that has the precision.
constexpr double roundings = 0x1p-50;

/// Four samples each, as doubles or floats.
struct Words16 {
    using Sample = std::int16_t;
    static __m128i words(const Sample* from) {
        return _mm_cvtepi16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from)));
    }
    static __m256d doubles(const Sample* from) { return _mm256_cvtepi32_pd(words(from)); }
    static __m128 floats(const Sample* from) { return _mm_cvtepi32_ps(words(from)); }
    static void store(__m128i words, Sample* to) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(to), _mm_packs_epi32(words, words));
    }
    static void store(__m128 y, Sample* to) { store(_mm_cvtps_epi32(y), to); }

    static constexpr double lowest = -0x1p15;
    static constexpr double highest = 0x1p15 - 1;
};

struct Words32 {
    using Sample = std::int32_t;
    static __m128i words(const Sample* from) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    }
    static __m256d doubles(const Sample* from) { return _mm256_cvtepi32_pd(words(from)); }
    static __m128 floats(const Sample* from) { return _mm_cvtepi32_ps(words(from)); }
    static void store(__m128i words, Sample* to) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), words);
    }
    static void store(__m128 y, Sample* to) {
        // What is too large converts to the lowest value.
        const __m128i above = _mm_castps_si128(_mm_cmpge_ps(y, _mm_set1_ps(0x1p31f)));
        store(_mm_xor_si128(_mm_cvtps_epi32(y), above), to);
    }

    static constexpr double lowest = -0x1p31;
    static constexpr double highest = 0x1p31 - 1;
};

struct Floats {
    using Sample = float;
    static __m256d doubles(const Sample* from) { return _mm256_cvtps_pd(_mm_loadu_ps(from)); }
    static __m128 floats(const Sample* from) { return _mm_loadu_ps(from); }
    static void store(__m128 y, Sample* to) { _mm_storeu_ps(to, y); }
};

template <typename Samples>
struct Sides {
    const typename Samples::Sample* oldSide;
    const typename Samples::Sample* newSide;
    typename Samples::Sample* out;
};

/// What equal power yields in doubles.
struct Mixed {
    __m256d y;
    __m256d level; ///< of the sides' levels together
};

template <typename Samples>
Mixed mixed(const Sides<Samples>& sides, std::int64_t at, __m256d oldGain, __m256d newGain,
            __m256d scale) {
    const __m256d sign = _mm256_set1_pd(-0.0);
    __m256d y = _mm256_setzero_pd();
    __m256d level = _mm256_setzero_pd();
    if (sides.newSide) {
        const __m256d part = _mm256_mul_pd(Samples::doubles(sides.newSide + at), newGain);
        y = _mm256_add_pd(y, part);
        level = _mm256_add_pd(level, _mm256_andnot_pd(sign, part));
    }
    if (sides.oldSide) {
        const __m256d part = _mm256_mul_pd(Samples::doubles(sides.oldSide + at), oldGain);
        y = _mm256_add_pd(y, part);
        level = _mm256_add_pd(level, _mm256_andnot_pd(sign, part));
    }
    return {_mm256_mul_pd(y, scale), _mm256_mul_pd(level, _mm256_andnot_pd(sign, scale))};
}

/// @return false, and nothing is stored, where doubles can't tell what a sample rounds to
template <typename Samples>
bool storeRounded(const Mixed& mix, typename Samples::Sample* to) {
    const __m256d lowest = _mm256_set1_pd(Samples::lowest);
    const __m256d highest = _mm256_set1_pd(Samples::highest);
    const __m256d error = _mm256_mul_pd(mix.level, _mm256_set1_pd(roundings));
    const auto rounded = [&](__m256d y) {
        return _mm256_cvtpd_epi32(_mm256_min_pd(_mm256_max_pd(y, lowest), highest));
    };
    const __m128i words = rounded(_mm256_sub_pd(mix.y, error));
    const __m128i same = _mm_cmpeq_epi32(words, rounded(_mm256_add_pd(mix.y, error)));
    if (_mm_movemask_epi8(same) != 0xFFFF) return false;
    Samples::store(words, to);
    return true;
}

template <>
bool storeRounded<Floats>(const Mixed& mix, float* to) {
    const __m256d error = _mm256_mul_pd(mix.level, _mm256_set1_pd(roundings));
    const __m128 least = _mm256_cvtpd_ps(_mm256_sub_pd(mix.y, error));
    const __m128 most = _mm256_cvtpd_ps(_mm256_add_pd(mix.y, error));
    if (_mm_movemask_ps(_mm_cmpeq_ps(least, most)) != 0xF) return false;
    _mm_storeu_ps(to, _mm256_cvtpd_ps(mix.y)); // with the sign of a zero
    return true;
}

template <typename Samples>
Sides<Samples> sidesOf(const FadeRun& run) {
    using Sample = typename Samples::Sample;
    return {static_cast<const Sample*>(run.oldSide), static_cast<const Sample*>(run.newSide),
            static_cast<Sample*>(run.out)};
}

/// The times of four frames, carried on by one addition each.
__m256d fourTimes(double& t, double step) {
    const double first = t;
    const double second = first + step;
    const double third = second + step;
    const double fourth = third + step;
    t = fourth + step;
    return _mm256_setr_pd(first, second, third, fourth);
}

template <typename Samples>
int mixEqualPower(FadeRun& run) {
    if (run.channels > 2) return 0;
    const Sides<Samples> sides = sidesOf<Samples>(run);
    const __m256d scale = _mm256_set1_pd(run.scale);
    int frame = 0;
    double t = run.t;
    for (; frame + 4 <= run.frames; frame += 4, run.t = t) {
        const __m256d times = fourTimes(t, run.step);
        const __m256d newGain = _mm256_sqrt_pd(times);
        const __m256d oldGain = _mm256_sqrt_pd(_mm256_sub_pd(_mm256_set1_pd(1.0), times));
        if (run.channels == 1) {
            const Mixed mix = mixed(sides, frame, oldGain, newGain, scale);
            if (!storeRounded<Samples>(mix, sides.out + frame)) break;
            continue;
        }
        const std::int64_t at = std::int64_t{frame} * 2;
        const Mixed first = mixed(sides, at, _mm256_permute4x64_pd(oldGain, 0x50),
                                  _mm256_permute4x64_pd(newGain, 0x50), scale);
        const Mixed second = mixed(sides, at + 4, _mm256_permute4x64_pd(oldGain, 0xFA),
                                   _mm256_permute4x64_pd(newGain, 0xFA), scale);
        // Nothing is stored before both halves are known: a side may lie where the result goes.
        alignas(16) typename Samples::Sample held[4];
        if (!storeRounded<Samples>(first, held)) break;
        if (!storeRounded<Samples>(second, sides.out + at + 4)) break;
        __builtin_memcpy(sides.out + at, held, sizeof held);
    }
    return frame;
}

template <typename Samples>
__m128 mixedLinear(const Sides<Samples>& sides, std::int64_t at, __m128 t, __m128 scale) {
    const __m128 before = sides.oldSide ? Samples::floats(sides.oldSide + at) : _mm_setzero_ps();
    const __m128 after = sides.newSide ? Samples::floats(sides.newSide + at) : _mm_setzero_ps();
    const __m128 y = _mm_add_ps(_mm_mul_ps(_mm_sub_ps(after, before), t), before);
    return _mm_mul_ps(y, scale);
}

/// Single precision throughout: the same operations as in the plain form.
template <typename Samples>
int mixLinear(FadeRun& run) {
    if (run.channels > 2) return 0;
    const Sides<Samples> sides = sidesOf<Samples>(run);
    const __m128 scale = _mm_set1_ps(static_cast<float>(run.scale));
    int frame = 0;
    for (; frame + 4 <= run.frames; frame += 4) {
        const __m128 t = _mm256_cvtpd_ps(fourTimes(run.t, run.step));
        if (run.channels == 1) {
            Samples::store(mixedLinear(sides, frame, t, scale), sides.out + frame);
            continue;
        }
        const std::int64_t at = std::int64_t{frame} * 2;
        const __m128 first = mixedLinear(sides, at, _mm_unpacklo_ps(t, t), scale);
        const __m128 second = mixedLinear(sides, at + 4, _mm_unpackhi_ps(t, t), scale);
        Samples::store(first, sides.out + at);
        Samples::store(second, sides.out + at + 4);
    }
    return frame;
}

} // namespace

const FadeKernels avx2FadeKernels = {
    {mixEqualPower<Words16>, mixEqualPower<Words32>, mixEqualPower<Floats>},
    {mixLinear<Words16>, mixLinear<Words32>, mixLinear<Floats>},
    "avx2",
};

} // namespace velorine
