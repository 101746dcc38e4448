#include "stages/LimiterKernels.h"

#include <immintrin.h>

namespace velorine {

namespace {

constexpr int vectors = limiterLook / 4;

void require(const float* pairs, int frames, double* required) {
    const __m256 magnitude = _mm256_castsi256_ps(_mm256_set1_epi32(0x7FFFFFFF));
    const __m256d one = _mm256_set1_pd(1.0);
    int i = 0;
    for (; i + 4 <= frames; i += 4) {
        const __m256 x = _mm256_and_ps(_mm256_loadu_ps(pairs + 2 * i), magnitude);
        const __m128 low = _mm256_castps256_ps128(x);
        const __m128 high = _mm256_extractf128_ps(x, 1);
        const __m128 left = _mm_shuffle_ps(low, high, 0x88);
        const __m128 right = _mm_shuffle_ps(low, high, 0xDD);
        const __m128 peak = _mm_max_ps(right, left);
        __m256d needed = one;
        if (_mm_movemask_ps(_mm_cmpge_ps(peak, _mm_set1_ps(1.0F))) != 0) {
            const __m256d wide = _mm256_cvtps_pd(peak);
            needed = _mm256_blendv_pd(one, _mm256_div_pd(one, wide),
                                      _mm256_cmp_pd(wide, one, _CMP_GE_OQ));
        }
        _mm256_storeu_pd(required + i, needed);
    }
    plainLimiterKernels.require(pairs + 2 * i, frames - i, required + i);
}

/// Of the frames ahead.
struct Lookahead {
    Lookahead() {
        for (int k = 0; k < limiterLook; ++k) {
            distance[k] = k + 1;
            reciprocal[k] = 1.0 / (k + 1);
        }
    }

    alignas(32) double distance[limiterLook]; ///< 1 to 32
    alignas(32) double reciprocal[limiterLook];
};

/// A line from one frame before `required` down to one of the requirements.
struct Line {
    double slope = 0.0;
    int target = -1; ///< index of the requirement; -1: the line is level
};

/// `(required - gain) / k`, rounded as the division is, but sooner: the division stands on the way
/// from one frame's gain to the next. A quotient by k up to 32 keeps 1/64 of a step away from where
/// the rounding turns, and the residue of a guess is known better than that, unless the fall is
/// next to nothing.
[[gnu::always_inline]] inline double slopeTo(double required, double gain, double k,
                                             double reciprocal) {
    const double fall = required - gain;
    if (fall > -0x1p-20) return fall / k;
    const double guess = __builtin_fma(-gain, reciprocal, required * reciprocal);
    const double residue = __builtin_fma(-guess, k, fall);
    return __builtin_fma(residue, reciprocal, guess);
}

[[gnu::always_inline]] inline Line lineTo(int target, const double* required, double gain,
                                          const Lookahead& ahead) {
    if (target < 0) return {};
    return {slopeTo(required[target], gain, ahead.distance[target], ahead.reciprocal[target]),
            target};
}

/// Whether no requirement lies below `line` but the one that it leads to. A no may be wrong where
/// one lies on it or as near above it as the roundings come to.
[[gnu::always_inline]] inline bool isSteepest(const Line& line, const double* required, double gain,
                                              const Lookahead& ahead) {
    constexpr double roundings = 0x1p-50; // of numbers up to 1
    if (line.slope > 0.0) return false;
    const __m256d from = _mm256_set1_pd(gain + roundings);
    const __m256d slope = _mm256_set1_pd(line.slope);
    __m256i below = _mm256_setzero_si256(); // how many, negative, in each lane
#pragma GCC unroll 8
    for (int v = 0; v < vectors; ++v) {
        const __m256d height = _mm256_fmadd_pd(slope, _mm256_load_pd(ahead.distance + 4 * v), from);
        below =
            _mm256_add_epi64(below, _mm256_castpd_si256(_mm256_cmp_pd(
                                        _mm256_loadu_pd(required + 4 * v), height, _CMP_LE_OQ)));
    }
    const __m256i own = _mm256_cmpeq_epi64(
        _mm256_set1_epi64x(line.target < 0 ? 4 : line.target & 3), _mm256_setr_epi64x(0, 1, 2, 3));
    const __m256i others = _mm256_xor_si256(below, own);
    return _mm256_testz_si256(others, others) != 0;
}

/// Index of the first of `values` that equals `wanted`.
[[gnu::always_inline]] inline int indexOf(const __m256d (&values)[vectors], __m256d wanted) {
    unsigned equal = 0;
#pragma GCC unroll 8
    for (int v = 0; v < vectors; ++v)
        equal |=
            static_cast<unsigned>(_mm256_movemask_pd(_mm256_cmp_pd(values[v], wanted, _CMP_EQ_OQ)))
            << (4 * v);
    return __builtin_ctz(equal);
}

/// The least of `values` and 0, in all lanes.
[[gnu::always_inline]] inline __m256d leastOf(const __m256d (&values)[vectors]) {
    static_assert(vectors == 8);
    const auto pair = [&](int v) { return _mm256_min_pd(values[v], values[v + 1]); };
    __m256d least = _mm256_min_pd(_mm256_min_pd(pair(0), pair(2)), _mm256_min_pd(pair(4), pair(6)));
    least = _mm256_min_pd(least, _mm256_setzero_pd());
    least = _mm256_min_pd(least, _mm256_permute4x64_pd(least, 0x4E));
    return _mm256_min_pd(least, _mm256_permute_pd(least, 0x5));
}

/// The steepest of all lines. Reciprocals find it; where they can't tell two lines apart, all
/// slopes are divided out.
[[gnu::noinline]] Line steepestLine(const double* required, double gain, const Lookahead& ahead) {
    const __m256d from = _mm256_set1_pd(gain);
    __m256d falls[vectors];
    __m256d slopes[vectors];
#pragma GCC unroll 8
    for (int v = 0; v < vectors; ++v) {
        falls[v] = _mm256_sub_pd(_mm256_loadu_pd(required + 4 * v), from);
        slopes[v] = _mm256_mul_pd(falls[v], _mm256_load_pd(ahead.reciprocal + 4 * v));
    }
    __m256d least = leastOf(slopes);
    if (_mm256_cvtsd_f64(least) >= 0.0) return {};
    const Line found = lineTo(indexOf(slopes, least), required, gain, ahead);
    if (isSteepest(found, required, gain, ahead)) return found;

    for (int v = 0; v < vectors; ++v)
        slopes[v] = _mm256_div_pd(falls[v], _mm256_load_pd(ahead.distance + 4 * v));
    least = leastOf(slopes);
    return {_mm256_cvtsd_f64(least), indexOf(slopes, least)};
}

/// Keeps the choice that `value` was made by a branch. One that is foreseen costs nothing on the
/// way from one frame's gain to the next; a minimum, which the compiler would make of it, would.
inline void keepBranch(double& value) {
    asm("" : "+x"(value));
}

/// The steepest line mostly leads to the same requirement as that of the frame before: one division
/// instead of 32, and a look whether any other may lie below.
void follow(LimiterRun& run) {
    static const Lookahead ahead;
    const double* const required = run.required;
    const auto isLoud = [](double requirement) { return requirement < 1.0; };
    int lastLoud = limiterLook - 2;
    while (lastLoud >= 0 && !isLoud(required[lastLoud]))
        --lastLoud;

    double gain = run.gain;
    int target = -1; // of all requirements
    for (int i = 0; i < run.frames; ++i) {
        if (isLoud(required[i + limiterLook - 1])) lastLoud = i + limiterLook - 1;
        if (lastLoud < i && gain == 1.0) {
            run.gains[i] = gain;
            continue;
        }
        double g = gain * run.rise;
        if (g > 1.0) {
            g = 1.0;
            keepBranch(g);
        }
        if (lastLoud >= i) {
            Line line = lineTo(target - i, required + i, g, ahead);
            if (!isSteepest(line, required + i, g, ahead))
                line = steepestLine(required + i, g, ahead);
            target = line.target >= 0 ? i + line.target : -1;
            if (required[i] < g) {
                g = required[i];
                keepBranch(g);
            }
            g += line.slope;
            if (g < 0.01) {
                g = 0.01;
                keepBranch(g);
            }
        }
        gain = g;
        run.gains[i] = gain;
    }
    run.gain = gain;
}

void apply(const float* pairs, const double* gains, int frames, float* to) {
    int i = 0;
    for (; i + 4 <= frames; i += 4) {
        const __m256d gain = _mm256_loadu_pd(gains + i);
        const __m256d first = _mm256_permute4x64_pd(gain, 0x50);
        const __m256d second = _mm256_permute4x64_pd(gain, 0xFA);
        const __m256d low = _mm256_cvtps_pd(_mm_loadu_ps(pairs + 2 * i));
        const __m256d high = _mm256_cvtps_pd(_mm_loadu_ps(pairs + 2 * i + 4));
        _mm_storeu_ps(to + 2 * i, _mm256_cvtpd_ps(_mm256_mul_pd(low, first)));
        _mm_storeu_ps(to + 2 * i + 4, _mm256_cvtpd_ps(_mm256_mul_pd(high, second)));
    }
    plainLimiterKernels.apply(pairs + 2 * i, gains + i, frames - i, to + 2 * i);
}

} // namespace

const LimiterKernels avx2LimiterKernels = {require, follow, apply, "avx2"};

} // namespace velorine
