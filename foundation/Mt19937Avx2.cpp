#include "foundation/Mt19937Kernel.h"

#include "foundation/Mt19937Vectors.h"

namespace velorine {

void refillAvx2(std::uint32_t* state) {
    refillVectors(state);
}

void triangularAvx2(const std::uint32_t* words, int count, double* to) {
    triangularVectors(words, count, to);
}

} // namespace velorine
