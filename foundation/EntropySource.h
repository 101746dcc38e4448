#pragma once

#include <cstdint>

namespace velorine {

/// Where the random generators get the seed that counts. Any thread.
class EntropySource {
public:
    virtual ~EntropySource() = default;
    virtual std::uint32_t seed() = 0;

    /// Puts `replacement` in the place of the time-stamp counter; null puts that back.
    static void install(EntropySource* replacement) noexcept;
};

/// Low 32 bits of the time-stamp counter, or what a test put in its place.
std::uint32_t entropySeed() noexcept;

} // namespace velorine
