#include "player/SpectrumMeter.h"

#include "foundation/CpuFeatures.h"
#include "kestrix/HannWindow.h"
#include "kestrix/KestrixKernels.h"

#include <cstddef>

namespace velorine {

SpectrumMeter::SpectrumMeter() : sum(frameLength / 2) {
    frame.resize(frameLength);
    spectrum.resize(frameLength);
    energy.resize(frameLength / 2);
    difference.resize(frameLength / 2);
    plan.planComplex(frameLength, frame.data(), spectrum.data(), FftDirection::forward);
    for (int i = 0; i < frameLength; ++i)
        window.push_back(static_cast<float>(hann(static_cast<double>(i) / frameLength)));
}

void SpectrumMeter::feed(std::span<const float> pairs) {
    waiting.insert(waiting.end(), pairs.begin(), pairs.end());
    std::size_t done = 0;
    for (; waiting.size() - done >= 2 * std::size_t{frameLength}; done += frameLength) {
        for (int i = 0; i < frameLength; ++i) {
            const auto place = done + 2 * static_cast<std::size_t>(i);
            const float w = window[static_cast<std::size_t>(i)];
            frame[i] = {waiting[place] * w, waiting[place + 1] * w};
        }
        measure();
    }
    waiting.erase(waiting.begin(), waiting.begin() + static_cast<std::ptrdiff_t>(done));
}

void SpectrumMeter::measure() {
    plan.execute(frame.data(), spectrum.data());
    kestrixKernels(cpuFeatures())
        .measureBins(reinterpret_cast<const float*>(spectrum.data()), frameLength, energy.data(),
                     difference.data());
    for (int k = 0; k < frameLength / 2; ++k)
        sum[static_cast<std::size_t>(k)] += static_cast<double>(energy[k]);
    ++frames;
}

std::vector<double> SpectrumMeter::power() const {
    if (frames == 0) return {};
    // The squares of a windowed sine's bins add up to 3/8 of the frame's squared length, times its
    // power, in each half of the spectrum and each channel.
    const double scale = 8.0 / (3.0 * frameLength * frameLength * frames);
    std::vector<double> mean;
    for (const double total : sum)
        mean.push_back(total * scale);
    return mean;
}

} // namespace velorine
