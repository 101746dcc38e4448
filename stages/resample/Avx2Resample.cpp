#include "foundation/CpuFeatures.h"
#include "stages/resample/PlanarResample.h"

#include <immintrin.h>

namespace velorine {

namespace {

void storeWords(__m256d sums, double gain, std::int32_t* to) {
    const __m256d scaled = _mm256_mul_pd(sums, _mm256_set1_pd(gain));
    const __m256d held =
        _mm256_max_pd(_mm256_min_pd(scaled, _mm256_set1_pd(0x1p31 - 1.0)), _mm256_set1_pd(-0x1p31));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm256_cvtpd_epi32(held));
}

struct EightSingles {
    using Number = float;
    using Vector = __m256;
    static constexpr int count = 8;

    static void separate(const std::int32_t* pairs, float* left, float* right) {
        const auto* const from = reinterpret_cast<const __m256i*>(pairs);
        const __m256 a = _mm256_cvtepi32_ps(_mm256_loadu_si256(from));     // l0 r0 .. l3 r3
        const __m256 b = _mm256_cvtepi32_ps(_mm256_loadu_si256(from + 1)); // l4 r4 .. l7 r7
        const __m256 low = _mm256_permute2f128_ps(a, b, 0x20);             // l0 r0 l1 r1 l4 ..
        const __m256 high = _mm256_permute2f128_ps(a, b, 0x31);
        _mm256_storeu_ps(left, _mm256_shuffle_ps(low, high, 0x88));
        _mm256_storeu_ps(right, _mm256_shuffle_ps(low, high, 0xDD));
    }
    static Vector load(const float* from) { return _mm256_loadu_ps(from); }
    static Vector splat(float x) { return _mm256_set1_ps(x); }
    static Vector plusTimes(Vector a, Vector b, Vector c) { return _mm256_fmadd_ps(b, c, a); }
    static void finish(const Vector (&sums)[4], double gain, std::int32_t* to) {
        const __m256 pairs =
            _mm256_hadd_ps(_mm256_hadd_ps(sums[0], sums[1]), _mm256_hadd_ps(sums[2], sums[3]));
        const __m128 total =
            _mm_add_ps(_mm256_castps256_ps128(pairs), _mm256_extractf128_ps(pairs, 1));
        storeWords(_mm256_cvtps_pd(total), gain, to);
    }
};

struct FourDoubles {
    using Number = double;
    using Vector = __m256d;
    static constexpr int count = 4;

    static void separate(const std::int32_t* pairs, double* left, double* right) {
        const auto* const from = reinterpret_cast<const __m128i*>(pairs);
        const __m256d a = _mm256_cvtepi32_pd(_mm_loadu_si128(from));     // l0 r0 l1 r1
        const __m256d b = _mm256_cvtepi32_pd(_mm_loadu_si128(from + 1)); // l2 r2 l3 r3
        const __m256d low = _mm256_permute2f128_pd(a, b, 0x20);          // l0 r0 l2 r2
        const __m256d high = _mm256_permute2f128_pd(a, b, 0x31);
        _mm256_storeu_pd(left, _mm256_unpacklo_pd(low, high));
        _mm256_storeu_pd(right, _mm256_unpackhi_pd(low, high));
    }
    static Vector load(const double* from) { return _mm256_loadu_pd(from); }
    static Vector splat(double x) { return _mm256_set1_pd(x); }
    static Vector plusTimes(Vector a, Vector b, Vector c) { return _mm256_fmadd_pd(b, c, a); }
    static void finish(const Vector (&sums)[4], double gain, std::int32_t* to) {
        const __m256d first = _mm256_hadd_pd(sums[0], sums[1]);
        const __m256d second = _mm256_hadd_pd(sums[2], sums[3]);
        const __m256d low = _mm256_permute2f128_pd(first, second, 0x20);
        const __m256d high = _mm256_permute2f128_pd(first, second, 0x31);
        storeWords(_mm256_add_pd(low, high), gain, to);
    }
};

} // namespace

const ResampleKernel singleAvx2Kernel = {PlanarResample<EightSingles>::run, 1, cpuFeature::avx2Fma,
                                         false, "single, AVX2"};
const ResampleKernel doubleAvx2Kernel = {PlanarResample<FourDoubles>::run, 2, cpuFeature::avx2Fma,
                                         false, "double, AVX2"};

} // namespace velorine
