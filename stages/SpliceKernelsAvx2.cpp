#include "stages/SpliceKernels.h"

#include <immintrin.h>

namespace velorine {

namespace {

/// Up to this level 32 bits hold a product: a mix is at most 2^15 * 23172 / 2^8.
constexpr std::int64_t highestLevel = 720;

__m128i samples(const std::int16_t* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

/// Eight weights, one for each sample.
__m256i weightsAt(const std::uint32_t* from, int channels) {
    if (channels == 1) return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
    const __m128i four = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    return _mm256_permutevar8x32_epi32(_mm256_castsi128_si256(four),
                                       _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3));
}

/// A weight's two halves lie as the two pieces' samples do: one instruction weighs and adds both.
void mixGrain(const SpliceRun& run) {
    if (run.level > highestLevel || run.level < -highestLevel)
        return plainSpliceKernels.mixGrain(run);
    const __m256i level = _mm256_set1_epi32(static_cast<int>(run.level));
    const int framesAtOnce = 8 / run.channels;
    int frame = 0;
    for (; frame + framesAtOnce <= run.frames; frame += framesAtOnce) {
        const std::int64_t at = std::int64_t{frame} * run.channels;
        const __m128i outgoing = samples(run.outgoing + at);
        const __m128i incoming = samples(run.incoming + at);
        const __m256i pairs = _mm256_set_m128i(_mm_unpackhi_epi16(outgoing, incoming),
                                               _mm_unpacklo_epi16(outgoing, incoming));
        __m256i y = _mm256_madd_epi16(pairs, weightsAt(run.weights + frame, run.channels));
        y = _mm256_srai_epi32(_mm256_add_epi32(y, _mm256_set1_epi32(0x80)), 8);
        y = _mm256_add_epi32(_mm256_mullo_epi32(y, level), _mm256_set1_epi32(0x2000));
        y = _mm256_srai_epi32(y, 14);
        const __m128i narrow =
            _mm_packs_epi32(_mm256_castsi256_si128(y), _mm256_extracti128_si256(y, 1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(run.out + at), narrow);
    }
    const std::int64_t done = std::int64_t{frame} * run.channels;
    SpliceRun rest = run;
    rest.outgoing += done;
    rest.incoming += done;
    rest.weights += frame;
    rest.frames -= frame;
    rest.out += done;
    plainSpliceKernels.mixGrain(rest);
}

} // namespace

const SpliceKernels avx2SpliceKernels = {mixGrain, "avx2"};

} // namespace velorine
