#include "foundation/CpuFeatures.h"
#include "stages/resample/PlanarResample.h"

#include <emmintrin.h>

namespace velorine {

namespace {

/// Two numbers to two integers.
void storeWords(__m128d sums, double gain, std::int32_t* to) {
    const __m128d scaled = _mm_mul_pd(sums, _mm_set1_pd(gain));
    const __m128d held =
        _mm_max_pd(_mm_min_pd(scaled, _mm_set1_pd(0x1p31 - 1.0)), _mm_set1_pd(-0x1p31));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), _mm_cvtpd_epi32(held));
}

struct FourSingles {
    using Number = float;
    using Vector = __m128;
    static constexpr int count = 4;

    static void separate(const std::int32_t* pairs, float* left, float* right) {
        const auto* const from = reinterpret_cast<const __m128i*>(pairs);
        const __m128 a = _mm_cvtepi32_ps(_mm_loadu_si128(from));
        const __m128 b = _mm_cvtepi32_ps(_mm_loadu_si128(from + 1));
        _mm_storeu_ps(left, _mm_shuffle_ps(a, b, 0x88));
        _mm_storeu_ps(right, _mm_shuffle_ps(a, b, 0xDD));
    }
    static Vector load(const float* from) { return _mm_loadu_ps(from); }
    static Vector splat(float x) { return _mm_set1_ps(x); }
    static Vector plusTimes(Vector a, Vector b, Vector c) {
        return _mm_add_ps(_mm_mul_ps(b, c), a);
    }
    static void finish(const Vector (&sums)[4], double gain, std::int32_t* to) {
        for (int frame = 0; frame < 2; ++frame) {
            const __m128 left = sums[2 * frame];
            const __m128 right = sums[2 * frame + 1];
            const __m128 both =
                _mm_add_ps(_mm_unpacklo_ps(left, right), _mm_unpackhi_ps(left, right));
            const __m128 total = _mm_add_ps(both, _mm_movehl_ps(both, both));
            storeWords(_mm_cvtps_pd(total), gain, to + 2 * frame);
        }
    }
};

struct TwoDoubles {
    using Number = double;
    using Vector = __m128d;
    static constexpr int count = 2;

    static void separate(const std::int32_t* pairs, double* left, double* right) {
        const __m128d a = _mm_cvtepi32_pd(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(pairs)));
        const __m128d b =
            _mm_cvtepi32_pd(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(pairs + 2)));
        _mm_storeu_pd(left, _mm_unpacklo_pd(a, b));
        _mm_storeu_pd(right, _mm_unpackhi_pd(a, b));
    }
    static Vector load(const double* from) { return _mm_loadu_pd(from); }
    static Vector splat(double x) { return _mm_set1_pd(x); }
    static Vector plusTimes(Vector a, Vector b, Vector c) {
        return _mm_add_pd(_mm_mul_pd(b, c), a);
    }
    static void finish(const Vector (&sums)[4], double gain, std::int32_t* to) {
        for (int frame = 0; frame < 2; ++frame) {
            const __m128d left = sums[2 * frame];
            const __m128d right = sums[2 * frame + 1];
            storeWords(_mm_add_pd(_mm_unpacklo_pd(left, right), _mm_unpackhi_pd(left, right)), gain,
                       to + 2 * frame);
        }
    }
};

} // namespace

const ResampleKernel singleSse2Kernel = {PlanarResample<FourSingles>::run, 1, cpuFeature::sse2,
                                         false, "single, SSE2"};
const ResampleKernel doubleSse2Kernel = {PlanarResample<TwoDoubles>::run, 2, cpuFeature::sse2,
                                         false, "double, SSE2"};

} // namespace velorine
