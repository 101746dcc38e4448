#include "foundation/Mt19937Kernel.h"

#include "foundation/Mt19937Vectors.h"

namespace velorine {

// With three-operand logic the compiler makes fewer instructions of the same steps.

void refillAvx512(std::uint32_t* state) {
    refillVectors(state);
}

void triangularAvx512(const std::uint32_t* words, int count, double* to) {
    triangularVectors(words, count, to);
}

} // namespace velorine
