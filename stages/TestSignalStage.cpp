#include "stages/TestSignalStage.h"

#include "chain/BlockPassing.h"
#include "chain/RingSearch.h"
#include "chain/WindowRead.h"
#include "foundation/Rounding.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace velorine {

namespace {

constexpr double fullScale = 2147483646.5; ///< a sine and its dither still fit
constexpr std::uint64_t quarterCycle = 0x4000000000000000;
constexpr std::uint64_t halfCycle = 0x8000000000000000;

double amplitude(double levelDb) {
    return std::pow(10.0, levelDb / 20.0) * fullScale;
}

/// Takes over a frequency, in cycles a frame. Where sampling would find nothing but the sine's
/// zeros, or one value of it, the phase moves to the sine's peaks.
void tune(double frequency, FxPos& phase, FxPos& step) {
    if (frequency == 0.5) phase.frac = phase.frac < halfCycle ? quarterCycle : 3 * quarterCycle;
    if (frequency == 0.0) phase.frac = quarterCycle;
    step = FxPos::fromDouble(frequency);
}

double sine(const FxPos& phase) {
    return std::sin(2.0 * std::numbers::pi * static_cast<double>(phase.frac) * 0x1p-64);
}

/// `phase` after `frames` more, which may be negative.
FxPos movedOn(const FxPos& phase, const FxPos& step, int frames) {
    return frames >= 0 ? phase + step * static_cast<std::uint32_t>(frames)
                       : phase - step * static_cast<std::uint32_t>(-frames);
}

} // namespace

std::int64_t TestSignalStage::inputEndFor(int, const FxPos& pos) {
    return pos.whole;
}

void TestSignalStage::seek(int delta, const FxPos& pos) {
    nextInput = nextFrame = pos.whole;
    phaseA = movedOn(phaseA, stepA, delta);
    phaseB = movedOn(phaseB, stepB, delta);
}

bool TestSignalStage::process(FxArena& sampleArena, FxBlock& out, FxRing& in, int maxFrames) {
    if (maxFrames == 0) return false;
    if (!enable.load(std::memory_order_relaxed)) {
        const bool made = passBlock(sampleArena, out, in, converter, nextFrame, cursor);
        nextInput = nextFrame;
        return made;
    }
    const std::int32_t inputRate = formatAtFrame(in, nextFrame).rate;
    rate = inputRate > 0 ? inputRate : 48000;
    const SampleFormat format{sampleType::int32, 2, rate, fullWidth};
    generate(static_cast<std::int32_t*>(out.allocate(sampleArena, format, blockFrames)));
    out.timeStart = timeAtFrame(in, nextFrame);
    out.srcStart = nextFrame << 16;
    nextFrame += blockFrames;
    out.timeEnd = timeAtFrame(in, nextFrame);
    out.srcEnd = nextFrame << 16;
    nextInput = nextFrame;
    return true;
}

void TestSignalStage::generate(std::int32_t* pairs) {
    const auto cyclesAt = [this](double frequency) { return std::min(frequency / rate, 0.5); };
    tune(cyclesAt(freqA.load(std::memory_order_relaxed)), phaseA, stepA);
    tune(cyclesAt(freqB.load(std::memory_order_relaxed)), phaseB, stepB);
    const bool withA = toneAOn.load(std::memory_order_relaxed);
    const bool withB = toneBOn.load(std::memory_order_relaxed);
    const bool withNoise = noiseOn.load(std::memory_order_relaxed);
    const bool ownNoises = noiseStereo.load(std::memory_order_relaxed);
    const double gainA = amplitude(levelA.load(std::memory_order_relaxed));
    const double gainB = amplitude(levelB.load(std::memory_order_relaxed));
    const double gainNoise = amplitude(levelNoise.load(std::memory_order_relaxed));

    for (int i = 0; i < blockFrames; ++i) {
        const double toneA = withA ? sine(phaseA) * gainA : 0.0;
        const double toneB = withB ? sine(phaseB) * gainB : 0.0;
        double noise = 0.0;
        for (int channel = 0; channel < 2; ++channel) {
            if (withNoise && (channel == 0 || ownNoises))
                noise = (2.0 * random.uniform() - 1.0) * gainNoise;
            const double x = toneA + toneB + noise + random.triangular();
            pairs[2 * i + channel] =
                static_cast<std::int32_t>(roundToEven(std::clamp(x, -2147483648.0, 2147483647.0)));
        }
        phaseA += stepA;
        phaseB += stepB;
    }
}

} // namespace velorine
