#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace velorine {

/// Volume and pan as a device applies them: one gain a channel, on samples of any container. Full
/// volume in the middle leaves every bit as it is. Guarded by its owner.
class ChannelGains {
public:
    enum class Side { left, right, both };

    /// @param formatTag  1 integer, 3 float
    /// @param sides      of the speakers, one a channel
    ChannelGains(int formatTag, int containerBits, std::vector<Side> sides);

    /// @param volume  hundredths of a decibel, -10000 (silence) to 0
    /// @param pan     above 0 by how much the left side is lowered, below 0 the right one; 10000
    /// and
    ///                -10000 mute it
    void set(int volume, int pan);

    bool transparent() const noexcept { return isTransparent; }

    /// Scales whole frames in place; integers are rounded to the nearest, ties to even.
    void apply(std::span<std::byte> frames) const;

private:
    template <typename Access>
    void scale(std::span<std::byte> frames) const;

    const bool isFloat;
    const int bits;
    const std::vector<Side> channelSides;
    std::vector<double> gains; ///< linear, one a channel
    bool isTransparent = true;
};

} // namespace velorine
