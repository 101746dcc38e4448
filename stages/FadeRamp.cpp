#include "stages/FadeRamp.h"

#include "foundation/CpuFeatures.h"
#include "foundation/SampleFormat.h"
#include "stages/FadeKernels.h"

#include <algorithm>
#include <cstddef>

namespace velorine {

namespace {

constexpr int passedOn = 4; ///< frames that the plain form takes where another one stops

int kernelOf(int type) {
    switch (type) {
    case sampleType::int16:
        return 0;
    case sampleType::int32:
        return 1;
    default:
        return 2;
    }
}

/// The sides of a run that begins `frames` later.
void advance(FadeRun& run, int frames, int frameBytes) {
    const std::ptrdiff_t bytes = std::ptrdiff_t{frames} * frameBytes;
    if (run.oldSide) run.oldSide = static_cast<const std::byte*>(run.oldSide) + bytes;
    if (run.newSide) run.newSide = static_cast<const std::byte*>(run.newSide) + bytes;
    run.out = static_cast<std::byte*>(run.out) + bytes;
}

} // namespace

void mixRamp(const FadeRamp& ramp) {
    static const FadeKernels& best = fadeKernels(cpuFeatures());
    mixRamp(ramp, best);
}

void mixRamp(const FadeRamp& ramp, const FadeKernels& kernels) {
    const int kernel = kernelOf(ramp.type);
    const int frameBytes = ramp.channels * (kernel == 0 ? 2 : 4);
    const MixRun mix = ramp.linear ? kernels.linear[kernel] : kernels.equalPower[kernel];
    const MixRun mixPlain =
        ramp.linear ? plainFadeKernels.linear[kernel] : plainFadeKernels.equalPower[kernel];

    const auto length = static_cast<double>(ramp.length);
    FadeRun run{ramp.oldSide, ramp.newSide, ramp.out, 0, 0, 0, ramp.channels, ramp.scale};
    run.t = (static_cast<double>(ramp.first) + 0.5) / length;
    run.step = 1.0 / length * 0.99995; // so that `t` stays below 1 though it is added up
    for (int left = ramp.frames; left > 0;) {
        run.frames = left;
        int done = mix(run);
        advance(run, done, frameBytes);
        left -= done;
        run.frames = std::min(left, passedOn);
        done = mixPlain(run);
        advance(run, done, frameBytes);
        left -= done;
    }
}

} // namespace velorine
