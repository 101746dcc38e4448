#pragma once

#include "kestrix/KestrixKernels.h"

#include <cstring>

namespace velorine {

/// The processor's loops in the vectors that `Lanes` names. Each file that is built for other
/// instructions has one of its own, so that no function exists in two forms.
///
/// `Lanes`: `count` of floats in a vector; types `Floats`, `Ints`, `HalfFloats`, `Doubles` (half as
/// many of twice the width); the orders `doubledLow` (a a b b of a b c d) and `doubledHigh` (c c d
/// d), `reversedBins` (c d a b), `realParts` (a a c c), `imaginaryParts` (b b d d), `swappedParts`
/// (b a d c), and of two vectors `evens` and `odds`.
template <typename Lanes>
class VectorKernels : private Lanes {
public:
    static constexpr KestrixKernels table(std::uint32_t features, const char* name) {
        return {windowPairs,   measureBins, weightedSums, addScaled, addTo,
                applyResponse, clipPairs,   features,     name};
    }

private:
    using Lanes::doubledHigh;
    using Lanes::doubledLow;
    using Lanes::evens;
    using Lanes::imaginaryParts;
    using Lanes::odds;
    using Lanes::realParts;
    using Lanes::reversedBins;
    using Lanes::swappedParts;
    using typename Lanes::Doubles;
    using typename Lanes::Floats;
    using typename Lanes::HalfFloats;
    using typename Lanes::Ints;
    static constexpr int lanes = Lanes::count;
    static constexpr int bins = lanes / 2; ///< complex values in a vector

    static inline Floats load(const float* from) {
        Floats values;
        std::memcpy(&values, from, sizeof values);
        return values;
    }
    static inline void store(float* to, const Floats& values) {
        std::memcpy(to, &values, sizeof values);
    }

    static inline Doubles widenedLow(const Floats& x) {
        HalfFloats half;
        std::memcpy(&half, &x, sizeof half);
        return __builtin_convertvector(half, Doubles);
    }
    static inline Doubles widenedHigh(const Floats& x) {
        HalfFloats half;
        std::memcpy(&half, reinterpret_cast<const char*>(&x) + sizeof half, sizeof half);
        return __builtin_convertvector(half, Doubles);
    }
    /// Without the sign.
    static inline Floats magnitudes(const Floats& x) {
        return reinterpret_cast<Floats>(reinterpret_cast<Ints>(x) & 0x7FFFFFFF);
    }
    static inline Floats chosen(const Ints& where, const Floats& yes, const Floats& no) {
        return reinterpret_cast<Floats>((reinterpret_cast<Ints>(yes) & where) |
                                        (reinterpret_cast<Ints>(no) & ~where));
    }
    static inline bool any(const Ints& mask) {
        std::int64_t words[sizeof mask / sizeof(std::int64_t)];
        std::memcpy(words, &mask, sizeof words);
        std::int64_t all = 0;
        for (const std::int64_t word : words)
            all |= word;
        return all != 0;
    }

    // -- Loops
    // -------------------------------------------------------------------------------------

    static void windowPairs(const float* from, const float* window, int pairs, float* to) {
        int i = 0;
        for (; i + lanes <= pairs; i += lanes) {
            const Floats w = load(window + i);
            store(to + 2 * i, load(from + 2 * i) * doubledLow(w));
            store(to + 2 * i + lanes, load(from + 2 * i + lanes) * doubledHigh(w));
        }
        plainKestrixKernels.windowPairs(from + 2 * i, window + i, pairs - i, to + 2 * i);
    }

    /// With A and B the bins at `k` and `length - k`, the sum of the channels' energies is
    /// |A|^2 + |B|^2, and their difference the real part of 2 A B.
    static void measureBins(const float* spectrum, int length, float* energy, float* difference) {
        energy[0] = difference[0] = 0.0F;
        int k = 1;
        for (; k + lanes <= length / 2; k += lanes) {
            const float* const lower = spectrum + 2 * k;
            const float* const upper = spectrum + 2 * (length - k) + 2;
            const Floats a0 = load(lower);
            const Floats a1 = load(lower + lanes);
            const Floats b0 = reversedBins(load(upper - lanes));
            const Floats b1 = reversedBins(load(upper - 2 * lanes));
            const Floats squares0 = a0 * a0 + b0 * b0;
            const Floats squares1 = a1 * a1 + b1 * b1;
            store(energy + k, evens(squares0, squares1) + odds(squares0, squares1));
            const Floats cross0 = a0 * b0;
            const Floats cross1 = a1 * b1;
            const Floats real = evens(cross0, cross1) - odds(cross0, cross1);
            store(difference + k, magnitudes(real + real));
        }
        for (; k < length / 2; ++k) {
            const float* const a = spectrum + 2 * k;
            const float* const b = spectrum + 2 * (length - k);
            energy[k] = (a[0] * a[0] + b[0] * b[0]) + (a[1] * a[1] + b[1] * b[1]);
            const float real = 2.0F * (a[0] * b[0] - a[1] * b[1]);
            difference[k] = real < 0.0F ? -real : real;
        }
    }

    static void weightedSums(const float* weight, const float* a, const float* b, int count,
                             double sums[2]) {
        Doubles sumA[2] = {};
        Doubles sumB[2] = {};
        int i = 0;
        for (; i + lanes <= count; i += lanes) {
            const Floats w = load(weight + i);
            const Floats productA = w * load(a + i);
            const Floats productB = w * load(b + i);
            sumA[0] += widenedLow(productA);
            sumA[1] += widenedHigh(productA);
            sumB[0] += widenedLow(productB);
            sumB[1] += widenedHigh(productB);
        }
        plainKestrixKernels.weightedSums(weight + i, a + i, b + i, count - i, sums);
        const Doubles allA = sumA[0] + sumA[1];
        const Doubles allB = sumB[0] + sumB[1];
        for (int lane = 0; lane < lanes / 2; ++lane) {
            sums[0] += allA[lane];
            sums[1] += allB[lane];
        }
    }

    static void addScaled(const float* from, float gain, int count, float* sum) {
        int i = 0;
        for (; i + lanes <= count; i += lanes)
            store(sum + i, load(sum + i) + load(from + i) * gain);
        plainKestrixKernels.addScaled(from + i, gain, count - i, sum + i);
    }

    static void addTo(const float* from, int count, float* sum) {
        int i = 0;
        for (; i + lanes <= count; i += lanes)
            store(sum + i, load(sum + i) + load(from + i));
        plainKestrixKernels.addTo(from + i, count - i, sum + i);
    }

    static void applyResponse(float* spectrum, const float* response, int length) {
        Floats conjugate; // -1 at imaginary parts
        for (int lane = 0; lane < lanes; ++lane)
            conjugate[lane] = lane % 2 == 0 ? 1.0F : -1.0F;
        const auto times = [&](const Floats& x, const Floats& re, const Floats& im) {
            return x * re - swappedParts(x) * im * conjugate;
        };
        applyAt(spectrum, response, 1.0F);
        applyAt(spectrum + length, response + length, 1.0F);
        int k = 1;
        for (; k + bins <= length / 2; k += bins) {
            const Floats r = load(response + 2 * k);
            float* const lower = spectrum + 2 * k;
            store(lower, times(load(lower), realParts(r), imaginaryParts(r)));
            const Floats back = reversedBins(r);
            float* const upper = spectrum + 2 * (length - k) + 2 - lanes;
            store(upper, times(load(upper), realParts(back), -imaginaryParts(back)));
        }
        for (; k < length / 2; ++k) {
            applyAt(spectrum + 2 * k, response + 2 * k, 1.0F);
            applyAt(spectrum + 2 * (length - k), response + 2 * k, -1.0F);
        }
    }

    static void applyAt(float* x, const float* response, float sign) {
        const float im = response[1] * sign;
        const float product = x[0] * response[0] - x[1] * im;
        x[1] = x[0] * im + x[1] * response[0];
        x[0] = product;
    }

    /// Natural logarithm between sqrt(1/2) and sqrt(2), by the series of the area tangent; within
    /// 3e-9 and the rounding.
    static inline Floats logNearOne(const Floats& x) {
        const Floats z = (x - 1.0F) / (x + 1.0F);
        const Floats q = z * z;
        const Floats series =
            1.0F + q * (1.0F / 3 + q * (1.0F / 5 + q * (1.0F / 7 + q * (1.0F / 9))));
        return (z + z) * series;
    }

    /// e^x between -0.35 and 0, by its power series; within 1e-8 and the rounding.
    static inline Floats expBelowZero(const Floats& x) {
        Floats sum = x * (1.0F / 5040) + 1.0F / 720;
        sum = sum * x + 1.0F / 120;
        sum = sum * x + 1.0F / 24;
        sum = sum * x + 1.0F / 6;
        sum = sum * x + 0.5F;
        sum = sum * x + 1.0F;
        return sum * x + 1.0F;
    }

    /// What the pairs with these peaks are multiplied with. In units of the bend's half width, t is
    /// the level above its start, and the output rises by t - t^2/4.
    static inline Floats clipFactors(const Floats& peaks) {
        constexpr float start = 0.70794578438413791F;
        constexpr float end = 1.41253754462275430F;   // 1 / start
        constexpr float width = 0.34538776394910684F; // ln(end): 3 dB
        const Ints bent = peaks > start;
        const Ints flat = peaks >= end;
        const Floats one = Floats{} + 1.0F;
        // Lanes out of the bend compute with a harmless 1.
        const Floats x = chosen(bent & ~flat, peaks, one);
        const Floats t = logNearOne(x) * (1.0F / width) + 1.0F;
        const Floats level = (t - t * t * 0.25F - 1.0F) * width;
        const Floats out = chosen(flat, one, expBelowZero(level));
        return chosen(bent, out / chosen(bent, peaks, one), one);
    }

    static void clipPairs(const float* from, int pairs, float* to) {
        int i = 0;
        for (; i + lanes <= pairs; i += lanes) {
            const Floats x0 = load(from + 2 * i);
            const Floats x1 = load(from + 2 * i + lanes);
            const Floats left = magnitudes(evens(x0, x1));
            const Floats right = magnitudes(odds(x0, x1));
            const Floats peaks = chosen(left > right, left, right);
            if (!any(peaks > 0.70794578438413791F)) {
                store(to + 2 * i, x0);
                store(to + 2 * i + lanes, x1);
                continue;
            }
            const Floats factors = clipFactors(peaks);
            store(to + 2 * i, x0 * doubledLow(factors));
            store(to + 2 * i + lanes, x1 * doubledHigh(factors));
        }
        plainKestrixKernels.clipPairs(from + 2 * i, pairs - i, to + 2 * i);
    }
};

} // namespace velorine
