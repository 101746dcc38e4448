#include "output/pulse/ChannelGains.h"

#include "foundation/Rounding.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace velorine {

namespace {

/// Linear gain of an attenuation in hundredths of a decibel.
double gainOf(int attenuation) {
    if (attenuation <= -10000) return 0.0;
    return attenuation >= 0 ? 1.0 : std::pow(10.0, attenuation / 2000.0);
}

struct Unsigned8 {
    static constexpr std::size_t bytes = 1;
    static void scale(std::byte* at, double gain) {
        const int centred = std::to_integer<int>(*at) - 128;
        *at = static_cast<std::byte>(roundToEven(centred * gain) + 128);
    }
};

/// Signed samples in `size` little-endian bytes.
template <std::size_t size>
struct Signed {
    static constexpr std::size_t bytes = size;
    static void scale(std::byte* at, double gain) {
        constexpr int unused = 32 - 8 * static_cast<int>(size);
        std::uint32_t raw = 0;
        std::memcpy(&raw, at, size);
        const auto value = static_cast<std::int32_t>(raw << unused) >> unused;
        raw = static_cast<std::uint32_t>(roundToEven(value * gain));
        std::memcpy(at, &raw, size);
    }
};

struct Float32 {
    static constexpr std::size_t bytes = 4;
    static void scale(std::byte* at, double gain) {
        float value = 0;
        std::memcpy(&value, at, sizeof value);
        value = static_cast<float>(static_cast<double>(value) * gain);
        std::memcpy(at, &value, sizeof value);
    }
};

} // namespace

ChannelGains::ChannelGains(int formatTag, int containerBits, std::vector<Side> sides)
    : isFloat(formatTag == 3), bits(containerBits), channelSides(std::move(sides)),
      gains(channelSides.size(), 1.0) {}

void ChannelGains::set(int volume, int pan) {
    const double whole = gainOf(volume);
    const double left = whole * gainOf(-std::max(pan, 0));
    const double right = whole * gainOf(std::min(pan, 0));
    for (std::size_t i = 0; i < gains.size(); ++i)
        gains[i] = channelSides[i] == Side::left    ? left
                   : channelSides[i] == Side::right ? right
                                                    : whole;
    isTransparent =
        std::all_of(gains.begin(), gains.end(), [](double gain) { return gain == 1.0; });
}

template <typename Access>
void ChannelGains::scale(std::span<std::byte> frames) const {
    std::size_t channel = 0;
    for (std::size_t at = 0; at + Access::bytes <= frames.size(); at += Access::bytes) {
        Access::scale(&frames[at], gains[channel]);
        if (++channel == gains.size()) channel = 0;
    }
}

void ChannelGains::apply(std::span<std::byte> frames) const {
    if (isTransparent) return;
    if (isFloat) return scale<Float32>(frames);
    switch (bits) {
    case 8:
        return scale<Unsigned8>(frames);
    case 16:
        return scale<Signed<2>>(frames);
    case 24:
        return scale<Signed<3>>(frames);
    default:
        return scale<Signed<4>>(frames);
    }
}

} // namespace velorine
