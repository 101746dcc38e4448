#include "foundation/CpuFeatures.h"
#include "kestrix/VectorKernels.h"

namespace velorine {

namespace {

struct Lanes8 {
    static constexpr int count = 8;
    using Floats = float __attribute__((vector_size(32)));
    using Ints = std::int32_t __attribute__((vector_size(32)));
    using HalfFloats = float __attribute__((vector_size(16)));
    using Doubles = double __attribute__((vector_size(32)));

    static Floats doubledLow(const Floats& x) {
        return __builtin_shufflevector(x, x, 0, 0, 1, 1, 2, 2, 3, 3);
    }
    static Floats doubledHigh(const Floats& x) {
        return __builtin_shufflevector(x, x, 4, 4, 5, 5, 6, 6, 7, 7);
    }
    static Floats reversedBins(const Floats& x) {
        return __builtin_shufflevector(x, x, 6, 7, 4, 5, 2, 3, 0, 1);
    }
    static Floats realParts(const Floats& x) {
        return __builtin_shufflevector(x, x, 0, 0, 2, 2, 4, 4, 6, 6);
    }
    static Floats imaginaryParts(const Floats& x) {
        return __builtin_shufflevector(x, x, 1, 1, 3, 3, 5, 5, 7, 7);
    }
    static Floats swappedParts(const Floats& x) {
        return __builtin_shufflevector(x, x, 1, 0, 3, 2, 5, 4, 7, 6);
    }
    static Floats evens(const Floats& a, const Floats& b) {
        return __builtin_shufflevector(a, b, 0, 2, 4, 6, 8, 10, 12, 14);
    }
    static Floats odds(const Floats& a, const Floats& b) {
        return __builtin_shufflevector(a, b, 1, 3, 5, 7, 9, 11, 13, 15);
    }
};

} // namespace

const KestrixKernels avx2KestrixKernels = VectorKernels<Lanes8>::table(cpuFeature::avx2Fma, "AVX2");

} // namespace velorine
