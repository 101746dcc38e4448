#pragma once

#include <cstdint>

namespace velorine {

/// The bulk work of `Mt19937`. All forms yield the same bits.
///
/// Included by files that are built for wider instructions: nothing inline belongs here.
struct Mt19937Kernel {
    /// Replaces the 624 words of `state` by the next 624. Behind them are eight more, for forms
    /// that read beyond the last.
    void (*refill)(std::uint32_t* state);

    /// `count` draws of triangular dither from `2 * count` untempered words.
    void (*triangular)(const std::uint32_t* words, int count, double* to);

    const char* name;
    std::uint32_t needs; ///< `cpuFeature` bits
};

void refillPlain(std::uint32_t* state);
void refillAvx2(std::uint32_t* state);
void refillAvx512(std::uint32_t* state);
void triangularPlain(const std::uint32_t* words, int count, double* to);
void triangularAvx2(const std::uint32_t* words, int count, double* to);
void triangularAvx512(const std::uint32_t* words, int count, double* to);

} // namespace velorine
