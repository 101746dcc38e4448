#include "output/pulse/PulseFormat.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace velorine {

namespace {

/// Integers are little-endian, 24 bits packed in three bytes.
pa_sample_format_t sampleFormatOf(const SoundSystem::Format& format) {
    if (format.formatTag == 3) return PA_SAMPLE_FLOAT32LE;
    switch (format.containerBits) {
    case 8:
        return PA_SAMPLE_U8;
    case 16:
        return PA_SAMPLE_S16LE;
    case 24:
        return PA_SAMPLE_S24LE;
    case 32:
        return PA_SAMPLE_S32LE;
    default:
        return PA_SAMPLE_INVALID;
    }
}

constexpr auto fl = PA_CHANNEL_POSITION_FRONT_LEFT;
constexpr auto fr = PA_CHANNEL_POSITION_FRONT_RIGHT;
constexpr auto fc = PA_CHANNEL_POSITION_FRONT_CENTER;
constexpr auto lfe = PA_CHANNEL_POSITION_LFE;
constexpr auto rl = PA_CHANNEL_POSITION_REAR_LEFT;
constexpr auto rr = PA_CHANNEL_POSITION_REAR_RIGHT;
constexpr auto rc = PA_CHANNEL_POSITION_REAR_CENTER;
constexpr auto sl = PA_CHANNEL_POSITION_SIDE_LEFT;
constexpr auto sr = PA_CHANNEL_POSITION_SIDE_RIGHT;

constexpr int laidOut = 8; ///< layouts of up to that many channels

/// The speakers that WAVE and FLAC files of 1 to 8 channels are made for.
constexpr pa_channel_position_t layouts[laidOut][laidOut] = {{PA_CHANNEL_POSITION_MONO},
                                                             {fl, fr},
                                                             {fl, fr, fc},
                                                             {fl, fr, rl, rr},
                                                             {fl, fr, fc, rl, rr},
                                                             {fl, fr, fc, lfe, rl, rr},
                                                             {fl, fr, fc, lfe, rc, sl, sr},
                                                             {fl, fr, fc, lfe, rl, rr, sl, sr}};

ChannelGains::Side sideOf(pa_channel_position_t position) {
    constexpr std::array left{fl, rl, sl, PA_CHANNEL_POSITION_FRONT_LEFT_OF_CENTER};
    constexpr std::array right{fr, rr, sr, PA_CHANNEL_POSITION_FRONT_RIGHT_OF_CENTER};
    if (std::count(left.begin(), left.end(), position) > 0) return ChannelGains::Side::left;
    if (std::count(right.begin(), right.end(), position) > 0) return ChannelGains::Side::right;
    return ChannelGains::Side::both;
}

} // namespace

std::optional<PulseStream::Shape> shapeOf(const PulseLibrary& pulse,
                                          const SoundSystem::Format& format) {
    if (format.channels < 1 || format.channels > int{PA_CHANNELS_MAX} || format.rate < 1) return {};
    PulseStream::Shape shape;
    shape.spec.format = sampleFormatOf(format);
    shape.spec.rate = static_cast<std::uint32_t>(format.rate);
    shape.spec.channels = static_cast<std::uint8_t>(format.channels);
    shape.frameBytes = format.blockAlign();
    if (pulse.pa_sample_spec_valid(&shape.spec) == 0) return {};

    pulse.pa_channel_map_init_extend(&shape.map, shape.spec.channels, PA_CHANNEL_MAP_WAVEEX);
    if (format.channels <= laidOut)
        std::copy_n(layouts[format.channels - 1], format.channels, std::begin(shape.map.map));
    return shape;
}

std::vector<ChannelGains::Side> sidesOf(const pa_channel_map& map) {
    std::vector<ChannelGains::Side> sides;
    for (int i = 0; i < map.channels; ++i)
        sides.push_back(sideOf(map.map[i]));
    return sides;
}

} // namespace velorine
