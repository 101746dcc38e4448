#include "stages/convert/ConvertKernels.h"

#include "stages/convert/DitherTo16Vectors.h"

namespace velorine {

void ditherTo16Avx512(const std::uint8_t* from, const std::uint32_t* words, int samples,
                      std::uint8_t* to) {
    ditherTo16Vectors(from, words, samples, to);
}

void refillAndDitherTo16Avx512(std::uint32_t* state, const std::uint8_t* from, std::uint8_t* to) {
    refillAndDitherTo16Vectors(state, from, to);
}

} // namespace velorine
