#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace velorine {

struct Mt19937Kernel;

/// Mersenne Twister, the source of all dither.
///
/// Seeded with a constant and then again from the entropy source, which is the seed that counts:
/// every playback has another dither sequence. One thread at a time.
/// M. Matsumoto, T. Nishimura, "Mersenne Twister: a 623-dimensionally equidistributed uniform
/// pseudo-random number generator", 1998.
class Mt19937 {
public:
    static constexpr int stateWords = 624;
    static constexpr std::uint32_t firstSeed = 0x17846ffe;

    Mt19937();                                 ///< as all of the system's are
    explicit Mt19937(std::uint32_t fixedSeed); ///< for tests

    void seed(std::uint32_t value);

    /// Works from now on as on a processor with these features (`cpuFeature`) only; the outputs
    /// stay the same. A new generator uses what the processor has.
    void useKernels(std::uint32_t features);

    std::uint32_t next() {
        if (index >= stateWords) refill();
        return temper(state[static_cast<std::size_t>(index++)]);
    }

    /// In [0, 1): an output as the top 32 bits of the mantissa.
    double uniform() { return static_cast<double>(next()) * 0x1p-32; }

    /// Triangular dither, peak amplitude 1: the difference of two uniform draws.
    double triangular() {
        const double a = uniform();
        return a - uniform();
    }

    /// As many `triangular()` as `to` holds, drawn in bulk.
    void triangular(std::span<double> to);

    static constexpr std::uint32_t temper(std::uint32_t y) {
        y ^= y >> 11;
        y ^= (y << 7) & 0x9d2c5680u;
        y ^= (y << 15) & 0xefc60000u;
        return y ^ (y >> 18);
    }

    /// The words that are drawn from now on, untempered, up to the next refill; for kernels that
    /// draw many at once. At least one.
    const std::uint32_t* pending(int* count) {
        if (index >= stateWords) refill();
        *count = stateWords - index;
        return state.data() + index;
    }

    /// Moves on by `count` words of `pending`.
    void skip(int count) { index += count; }

    /// All words of the state and eight more, once none is pending, for kernels that refill it as
    /// they draw: they leave it as spent as it was. Else null.
    std::uint32_t* spent() { return index >= stateWords ? state.data() : nullptr; }

private:
    void refill();

    alignas(64) std::array<std::uint32_t, stateWords + 8> state{};
    const Mt19937Kernel* kernel;
    int index = stateWords;
};

} // namespace velorine
