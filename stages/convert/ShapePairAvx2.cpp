#include "stages/convert/ConvertKernels.h"

#include <immintrin.h>

namespace velorine {

// The way from one error to the next is short here: whole numbers of 2^-26 LSB, the unit of the
// filter's sum, in 32-bit lanes that may wrap. In this unit the plain form, with its doubles and
// its float, is met but for some 5 units: enough to settle both roundings, except next to a tie. A
// block that has such a sample, about two in a hundred, is done again in the plain form's
// arithmetic.
//
// Vectors hold the left channel in their low 128 bits and the right one in the high, and in each
// one number for each of the block's four frames.

namespace {

constexpr int unitBits = 26;  ///< of an LSB
constexpr int errorBits = 14; ///< the same, as the filter takes its errors
constexpr int errorShift = unitBits - errorBits;
constexpr int unitMask = (1 << unitBits) - 1;
constexpr int errorMask = (1 << errorShift) - 1;

/// Units by which the sum before the rounding may be off: half of one each for sample and dither,
/// and two roundings to double, 1/8 each for samples of 2^24 LSB.
constexpr int roundingZone = 2;

/// Units by which the error may be off: half of one for the sample, 1/8 for the double, and 4 for
/// the float that the error passes through, half of 2^-23 LSB.
constexpr int errorZone = 5;

constexpr double largest = 0x1p24; ///< LSB

__m256i load(const void* from) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(from));
}

__m256i all(int value) {
    return _mm256_set1_epi32(value);
}

/// [L0 R0 L1 R1] and [L2 R2 L3 R3], the low words of 64 bits each, channel by channel.
__m256i byChannel(__m256i a, __m256i b) {
    const __m256 mixed =
        _mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), _MM_SHUFFLE(2, 0, 2, 0));
    return _mm256_permutevar8x32_epi32(_mm256_castps_si256(mixed),
                                       _mm256_setr_epi32(0, 4, 2, 6, 1, 5, 3, 7));
}

__m256i interleaved(__m256i words) {
    return _mm256_permutevar8x32_epi32(words, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

bool inRange(const double* x) {
    const __m256d magnitude = _mm256_castsi256_pd(_mm256_set1_epi64x(0x7fffffff'ffffffffLL));
    const __m256d limit = _mm256_set1_pd(largest);
    const __m256d a = _mm256_and_pd(_mm256_loadu_pd(x), magnitude);
    const __m256d b = _mm256_and_pd(_mm256_loadu_pd(x + 4), magnitude);
    const __m256d isIn =
        _mm256_and_pd(_mm256_cmp_pd(a, limit, _CMP_LT_OQ), _mm256_cmp_pd(b, limit, _CMP_LT_OQ));
    return _mm256_movemask_pd(isIn) == 0xf;
}

/// What comes in with a block: the sum of sample, dither and half an LSB in two parts, and what
/// leads from the rounded sum's remainder to the error.
struct Block {
    __m256i whole;  ///< LSB
    __m256i part;   ///< units, below an LSB
    __m256i dither; ///< units, with the halves of both roundings

    Block(const double* x, const double* d) {
        // Pushed up so far that the last bit of a double is one unit, the number stands in its low
        // bits as an integer.
        constexpr double push = 0x1.8p52;
        constexpr long long pushBits = 0x43380000'00000000LL;
        const __m256d unit = _mm256_set1_pd(0x1p26);
        const auto units = [&](const double* from) {
            return _mm256_castpd_si256(
                _mm256_add_pd(_mm256_mul_pd(_mm256_loadu_pd(from), unit), _mm256_set1_pd(push)));
        };
        constexpr unsigned long long bias = 2ULL * pushBits - (1ULL << (unitBits - 1));
        const __m256i offset = _mm256_set1_epi64x(static_cast<long long>(bias));
        const __m256i da = units(d);
        const __m256i db = units(d + 4);
        const __m256i a = _mm256_sub_epi64(_mm256_add_epi64(units(x), da), offset);
        const __m256i b = _mm256_sub_epi64(_mm256_add_epi64(units(x + 4), db), offset);

        whole = byChannel(_mm256_srli_epi64(a, unitBits), _mm256_srli_epi64(b, unitBits));
        part = _mm256_and_si256(byChannel(a, b), all(unitMask));
        dither = _mm256_add_epi32(byChannel(da, db),
                                  all((1 << (unitBits - 1)) - (1 << (errorShift - 1))));
    }

    /// The error of a rounded sum, in units and half a filter's unit higher.
    __m256i error(__m256i sum) const {
        return _mm256_sub_epi32(_mm256_and_si256(sum, all(unitMask)), dither);
    }
};

/// Whether the plain form might round one of the samples, or its error, the other way.
bool nearTie(__m256i sum, __m256i error) {
    const __m256i a = _mm256_and_si256(_mm256_add_epi32(sum, all(roundingZone)), all(unitMask));
    const __m256i b = _mm256_and_si256(_mm256_add_epi32(error, all(errorZone)), all(errorMask));
    const __m256i near = _mm256_or_si256(_mm256_cmpgt_epi32(all(2 * roundingZone), a),
                                         _mm256_cmpgt_epi32(all(2 * errorZone), b));
    return !_mm256_testz_si256(near, near);
}

/// Errors that lie behind the four of a block, by eights, the oldest first.
struct Past {
    __m256i a;
    __m256i b;
    __m256i c;

    void append(__m256i errors) {
        a = _mm256_alignr_epi8(b, a, 8);
        b = _mm256_alignr_epi8(c, b, 8);
        c = _mm256_alignr_epi8(_mm256_packs_epi32(errors, errors), c, 8);
    }

    /// Their part in the filter's sums of the next block.
    __m256i sums(const ShaperTables& tables) const {
        return _mm256_hadd_epi32(_mm256_hadd_epi32(frame(tables.past[0]), frame(tables.past[1])),
                                 _mm256_hadd_epi32(frame(tables.past[2]), frame(tables.past[3])));
    }

private:
    __m256i frame(const std::int16_t (&taps)[3][16]) const {
        return _mm256_add_epi32(_mm256_add_epi32(_mm256_madd_epi16(a, load(taps[0])),
                                                 _mm256_madd_epi16(b, load(taps[1]))),
                                _mm256_madd_epi16(c, load(taps[2])));
    }
};

/// One error's part in the sums of the block that `taps` are for.
template <int Frame>
__m256i spread(__m256i errors, const std::int16_t (&taps)[16]) {
    return _mm256_madd_epi16(_mm256_shuffle_epi32(errors, Frame * 0x55), load(taps));
}

/// The block's errors' part in the filter's sums of the next block.
__m256i nextSums(__m256i errors, const ShaperTables& tables) {
    return _mm256_add_epi32(
        _mm256_add_epi32(spread<0>(errors, tables.next[0]), spread<1>(errors, tables.next[1])),
        _mm256_add_epi32(spread<2>(errors, tables.next[2]), spread<3>(errors, tables.next[3])));
}

/// Results of a block.
struct Rounded {
    __m256i q;      ///< valid LSBs
    __m256i errors; ///< for the filter
    __m256i sums;   ///< of the filter, complete
};

Rounded roundExactly(const double* x, const double* dither, __m256i sums,
                     const ShaperTables& tables) {
    alignas(32) std::int32_t sum[8];
    alignas(32) std::int32_t error[8];
    alignas(32) std::int32_t q[8];
    _mm256_store_si256(reinterpret_cast<__m256i*>(sum), sums);
    for (int frame = 0; frame < 4; ++frame) {
        for (int channel = 0; channel < 2; ++channel) {
            const int lane = 4 * channel + frame;
            const int sample = 2 * frame + channel;
            const ShapedSample shaped = shapeSample(x[sample], sum[lane], dither[sample]);
            q[lane] = static_cast<std::int32_t>(shaped.q);
            error[lane] = errorWord(shaped.error);
            for (int later = frame + 1; later < 4; ++later)
                sum[lane + later - frame] +=
                    error[lane] * tables.within[frame][2 * (lane + later - frame)];
        }
    }
    return {load(q), load(error), load(sum)};
}

Rounded roundBlock(const double* x, const double* dither, __m256i sums,
                   const ShaperTables& tables) {
    const Block block{x, dither};
    const auto errorsOf = [&](__m256i sum) {
        return _mm256_srai_epi32(block.error(sum), errorShift);
    };
    // Each step settles one more frame, whose error then goes on to those behind it.
    __m256i sum = _mm256_add_epi32(sums, block.part);
    sum = _mm256_add_epi32(sum, spread<0>(errorsOf(sum), tables.within[0]));
    sum = _mm256_add_epi32(sum, spread<1>(errorsOf(sum), tables.within[1]));
    sum = _mm256_add_epi32(sum, spread<2>(errorsOf(sum), tables.within[2]));

    const __m256i error = block.error(sum);
    if (nearTie(sum, error)) [[unlikely]]
        return roundExactly(x, dither, sums, tables);
    return {_mm256_add_epi32(block.whole, _mm256_srai_epi32(sum, unitBits)),
            _mm256_srai_epi32(error, errorShift), _mm256_sub_epi32(sum, block.part)};
}

class Limiter {
public:
    explicit Limiter(const WordLimits& limits)
        : low(all(static_cast<int>(limits.low))), high(all(static_cast<int>(limits.high))),
          top(all(limits.top)), cap(all(limits.cap)), shift(_mm_cvtsi32_si128(limits.shift)) {}

    __m256i operator()(__m256i q) const {
        const __m256i held = _mm256_min_epi32(_mm256_max_epi32(q, low), high);
        return _mm256_blendv_epi8(_mm256_sll_epi32(held, shift), cap,
                                  _mm256_cmpgt_epi32(held, top));
    }

private:
    __m256i low;
    __m256i high;
    __m256i top;
    __m256i cap;
    __m128i shift;
};

__m256i joined(const std::int16_t* left, const std::int16_t* right) {
    return _mm256_inserti128_si256(
        _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(left))),
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(right)), 1);
}

__m256i joinedFour(const std::int16_t* left, const std::int16_t* right) {
    const __m128i a = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(left));
    const __m128i b = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(right));
    return _mm256_cvtepi16_epi32(_mm_unpacklo_epi64(a, b));
}

void part(__m256i words, std::int16_t* left, std::int16_t* right) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(left), _mm256_castsi256_si128(words));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(right), _mm256_extracti128_si256(words, 1));
}

void partFour(__m256i words, std::int16_t* left, std::int16_t* right) {
    const __m256i packed = _mm256_packs_epi32(words, words);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(left), _mm256_castsi256_si128(packed));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(right), _mm256_extracti128_si256(packed, 1));
}

} // namespace

int shapePairAvx2(const ShaperTables& tables, const double* x, const double* dither, int frames,
                  const WordLimits& limits, ShapedPair& pair, std::int32_t* to) {
    const Limiter limiter{limits};
    std::int16_t* const left = pair.errors[0];
    std::int16_t* const right = pair.errors[1];
    Past past{joined(left, right), joined(left + 8, right + 8), joined(left + 16, right + 16)};
    Rounded block{_mm256_setzero_si256(), joinedFour(left + 24, right + 24),
                  _mm256_setzero_si256()};
    __m256i sums = _mm256_add_epi32(past.sums(tables), nextSums(block.errors, tables));

    int done = 0;
    for (; done < frames && inRange(x); done += 4, x += 8, dither += 8, to += 8) {
        past.append(block.errors);
        const __m256i pastSums = past.sums(tables);
        block = roundBlock(x, dither, sums, tables);
        sums = _mm256_add_epi32(pastSums, nextSums(block.errors, tables));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), interleaved(limiter(block.q)));
    }

    part(past.a, left, right);
    part(past.b, left + 8, right + 8);
    part(past.c, left + 16, right + 16);
    partFour(block.errors, left + 24, right + 24);
    pair.feedback[0] = _mm256_extract_epi32(block.sums, 3);
    pair.feedback[1] = _mm256_extract_epi32(block.sums, 7);
    return done;
}

} // namespace velorine
