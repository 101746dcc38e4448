#include "foundation/CpuFeatures.h"
#include "kestrix/VectorKernels.h"

namespace velorine {

namespace {

struct Lanes4 {
    static constexpr int count = 4;
    using Floats = float __attribute__((vector_size(16)));
    using Ints = std::int32_t __attribute__((vector_size(16)));
    using HalfFloats = float __attribute__((vector_size(8)));
    using Doubles = double __attribute__((vector_size(16)));

    static Floats doubledLow(const Floats& x) { return __builtin_shufflevector(x, x, 0, 0, 1, 1); }
    static Floats doubledHigh(const Floats& x) { return __builtin_shufflevector(x, x, 2, 2, 3, 3); }
    static Floats reversedBins(const Floats& x) {
        return __builtin_shufflevector(x, x, 2, 3, 0, 1);
    }
    static Floats realParts(const Floats& x) { return __builtin_shufflevector(x, x, 0, 0, 2, 2); }
    static Floats imaginaryParts(const Floats& x) {
        return __builtin_shufflevector(x, x, 1, 1, 3, 3);
    }
    static Floats swappedParts(const Floats& x) {
        return __builtin_shufflevector(x, x, 1, 0, 3, 2);
    }
    static Floats evens(const Floats& a, const Floats& b) {
        return __builtin_shufflevector(a, b, 0, 2, 4, 6);
    }
    static Floats odds(const Floats& a, const Floats& b) {
        return __builtin_shufflevector(a, b, 1, 3, 5, 7);
    }
};

} // namespace

const KestrixKernels sse2KestrixKernels = VectorKernels<Lanes4>::table(cpuFeature::sse2, "SSE2");

} // namespace velorine
