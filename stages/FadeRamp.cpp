#include "stages/FadeRamp.h"

#include "foundation/Rounding.h"
#include "foundation/SampleFormat.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

namespace velorine {

namespace {

template <typename Sample, typename Value>
Sample storedAs(Value value) {
    if constexpr (std::is_floating_point_v<Sample>) {
        return static_cast<Sample>(value);
    } else {
        const auto q = static_cast<std::int64_t>(std::llrint(value));
        return static_cast<Sample>(std::clamp<std::int64_t>(q, std::numeric_limits<Sample>::min(),
                                                            std::numeric_limits<Sample>::max()));
    }
}

/// `t` stays below 1 although it is carried on by additions.
struct RampTime {
    explicit RampTime(const FadeRamp& ramp)
        : t((static_cast<double>(ramp.first) + 0.5) / static_cast<double>(ramp.length)),
          step(1.0 / static_cast<double>(ramp.length) * 0.99995) {}
    double t;
    const double step;
};

template <typename Sample>
void mixEqualPower(const FadeRamp& ramp) {
    const auto* const oldSide = static_cast<const Sample*>(ramp.oldSide);
    const auto* const newSide = static_cast<const Sample*>(ramp.newSide);
    auto* const out = static_cast<Sample*>(ramp.out);
    RampTime time{ramp};
    std::int64_t i = 0;
    for (int frame = 0; frame < ramp.frames; ++frame, time.t += time.step) {
        const long double newGain = std::sqrt(static_cast<long double>(time.t));
        const long double oldGain = std::sqrt(1.0L - static_cast<long double>(time.t));
        for (int channel = 0; channel < ramp.channels; ++channel, ++i) {
            long double y = 0.0L;
            if (newSide) y += static_cast<long double>(newSide[i]) * newGain;
            if (oldSide) y += static_cast<long double>(oldSide[i]) * oldGain;
            out[i] = storedAs<Sample>(y * static_cast<long double>(ramp.scale));
        }
    }
}

template <typename Sample>
void mixLinear(const FadeRamp& ramp) {
    const auto* const oldSide = static_cast<const Sample*>(ramp.oldSide);
    const auto* const newSide = static_cast<const Sample*>(ramp.newSide);
    auto* const out = static_cast<Sample*>(ramp.out);
    const auto scale = static_cast<float>(ramp.scale);
    RampTime time{ramp};
    std::int64_t i = 0;
    for (int frame = 0; frame < ramp.frames; ++frame, time.t += time.step) {
        const auto t = static_cast<float>(time.t);
        for (int channel = 0; channel < ramp.channels; ++channel, ++i) {
            const float before = oldSide ? static_cast<float>(oldSide[i]) : 0.0f;
            const float after = newSide ? static_cast<float>(newSide[i]) : 0.0f;
            out[i] = storedAs<Sample>(((after - before) * t + before) * scale);
        }
    }
}

template <typename Sample>
void mix(const FadeRamp& ramp) {
    if (ramp.linear)
        mixLinear<Sample>(ramp);
    else
        mixEqualPower<Sample>(ramp);
}

} // namespace

void mixRamp(const FadeRamp& ramp) {
    switch (ramp.type) {
    case sampleType::int16:
        return mix<std::int16_t>(ramp);
    case sampleType::int32:
        return mix<std::int32_t>(ramp);
    default:
        return mix<float>(ramp);
    }
}

} // namespace velorine
