#include "stages/TailStage.h"

#include "chain/BlockPassing.h"
#include "chain/FxClock.h"
#include "chain/RingSearch.h"
#include "chain/WindowRead.h"
#include "foundation/Rounding.h"

#include <algorithm>
#include <cassert>
#include <cmath>

namespace velorine {

namespace {

constexpr FxTime followJump = 11'000'000; ///< 1.1 s; the target's own jitter is far below
constexpr int gainedFrames = 4608;        ///< most frames that one block with a gain takes

template <typename Sample>
void scaleIntegers(const Sample* from, Sample* to, std::int64_t count, double factor,
                   Mt19937& dither, double lowest, double highest) {
    constexpr auto least = std::numeric_limits<Sample>::min();
    constexpr auto most = std::numeric_limits<Sample>::max();
    for (std::int64_t i = 0; i < count; ++i) {
        const double x = std::clamp(from[i] * factor, lowest, highest);
        const std::int64_t q = roundToEven(x + dither.triangular());
        to[i] = static_cast<Sample>(std::clamp<std::int64_t>(q, least, most));
    }
}

int beepRate(int rate) {
    switch (rate) {
    case 32000:
    case 44100:
    case 48000:
    case 64000:
    case 96000:
    case 192000:
        return rate;
    default:
        return 48000;
    }
}

/// Odd harmonics of `t`, with a peak of 1.
double beepTone(double t) {
    constexpr double sumOfWeights = 0.22624434389140272; // 1 / 4.42
    return (0.56 * std::cos(t) + 0.9 * std::cos(3 * t) + 0.86 * std::cos(5 * t) +
            0.8 * std::cos(7 * t) + 0.7 * std::cos(9 * t) + 0.6 * std::cos(11 * t)) *
           sumOfWeights;
}

} // namespace

int TailStage::alignRewind(int delta, const FxPos&) {
    const std::int64_t nearest = std::min<std::int64_t>(beepEndFrame - framesOut, 0);
    return std::max(delta, static_cast<int>(nearest));
}

void TailStage::seek(int delta, const FxPos& pos) {
    nextInput = nextFrame = pos.whole;
    framesOut += delta;
}

bool TailStage::held() const {
    return pausedBits.load(std::memory_order_relaxed) != 0 &&
           beepPending.load(std::memory_order_relaxed) == 0;
}

void TailStage::checkPlace(std::int64_t ringEnd) const {
    assert(framesOut == ringEnd);
    static_cast<void>(ringEnd);
}

std::int64_t TailStage::firstUsableFrame(std::int64_t from, std::int64_t to) const {
    return input ? velorine::firstUsableFrame(*input, from, to) : from;
}

std::int64_t TailStage::timeToFrame(FxTime time) const {
    return input ? frameAtTime(*input, time) : 0;
}

void TailStage::setTargetTime(FxTime time) {
    const RecursiveLock::Scope guard{targetLock};
    targetTime = time;
}

FxTime TailStage::nextTime() const {
    return input ? timeAtFrame(*input, nextFrame) : 0;
}

bool TailStage::process(FxArena& sampleArena, FxBlock& out, FxRing& in, int maxFrames) {
    input = &in;
    if (maxFrames == 0) {
        markPosition(out, nextTime(), nextFrame);
        standing = true;
        return true;
    }
    if (!produce(sampleArena, out)) return false;
    framesOut += out.frames();
    nextInput = nextFrame;
    return true;
}

bool TailStage::produce(FxArena& sampleArena, FxBlock& out) {
    if (beepPending.exchange(0, std::memory_order_relaxed) != 0) {
        produceBeep(sampleArena, out);
        return true;
    }
    const std::int32_t paused = pausedBits.load(std::memory_order_relaxed);
    if (paused != 0 && paused != 1) {
        markPosition(out, nextTime(), nextFrame);
        standing = true;
        return true;
    }
    if (paused == 1) {
        followTarget();
        return passBlock(sampleArena, out, *input, converter, nextFrame, cursor);
    }
    const double factor = gain.load(std::memory_order_relaxed);
    if (factor == 1.0) return passBlock(sampleArena, out, *input, converter, nextFrame, cursor);
    return produceGained(sampleArena, out, factor);
}

void TailStage::followTarget() {
    FxTime target = 0;
    {
        const RecursiveLock::Scope guard{targetLock};
        target = targetTime;
    }
    if (target - nextTime() < followJump) return;
    const std::int64_t frame = timeToFrame(target);
    if (frame > nextFrame) nextFrame = frame;
}

bool TailStage::produceGained(FxArena& sampleArena, FxBlock& out, double factor) {
    const int index = indexAt(*input, nextFrame, cursor);
    if (index == input->count()) return false;
    const FxBlock& block = input->at(index);
    if (block.empty() || block.posStart > nextFrame)
        return passBlock(sampleArena, out, *input, converter, nextFrame, cursor);

    // What can't be taken as one uniform piece goes block by block, through the window read.
    std::int64_t end = firstUsableFrame(nextFrame, nextFrame + gainedFrames);
    if (end <= nextFrame) end = std::min(block.posEnd, nextFrame + gainedFrames);
    const int frames = static_cast<int>(end - nextFrame);

    SampleFormat format = block.format;
    const bool keepsType =
        factor <= 1.0 && (format.type == sampleType::int16 || format.type == sampleType::int32);
    if (!keepsType) format.type = sampleType::float32;
    format.layout = fullWidth;
    const FrameWindow window = readWindow(*input, converter, format, nextFrame, frames);
    void* const samples = out.allocate(sampleArena, format, frames);
    const std::int64_t count = std::int64_t{frames} * format.channels;
    if (!keepsType) {
        const auto narrow = static_cast<float>(factor);
        for (std::int64_t i = 0; i < count; ++i)
            static_cast<float*>(samples)[i] = window.as<float>()[i] * narrow;
    } else if (format.type == sampleType::int16) {
        scaleIntegers(window.as<std::int16_t>(), static_cast<std::int16_t*>(samples), count, factor,
                      ditherGen, -1e9, 1e9);
    } else {
        scaleIntegers(window.as<std::int32_t>(), static_cast<std::int32_t*>(samples), count, factor,
                      ditherGen, -2147483647.5, 2147483646.5);
    }
    out.timeStart = timeAtFrame(*input, nextFrame);
    out.timeEnd = timeAtFrame(*input, end);
    out.srcStart = nextFrame << 16;
    out.srcEnd = end << 16;
    nextFrame = end;
    cursor = input->removed() + indexAt(*input, nextFrame);
    return true;
}

void TailStage::produceBeep(FxArena& sampleArena, FxBlock& out) {
    const int index = indexAt(*input, nextFrame, cursor);
    const int streamRate = input->empty()           ? rate
                           : index < input->count() ? input->at(index).format.rate
                                                    : input->newest().format.rate;
    const double s = beepRate(streamRate) / 48000.0;

    SampleFormat format;
    format.rate = static_cast<std::int32_t>(roundToEven(s * 48000.0));
    const int frames = static_cast<int>(roundToEven(3400.0 * s));
    const auto toneEnd = static_cast<double>(roundToEven(2200.0 * s));
    const double amplitude = beepGain.load(std::memory_order_relaxed) * 32766.0 *
                             beepLevel.load(std::memory_order_relaxed);
    auto* const samples = static_cast<std::int16_t*>(out.allocate(sampleArena, format, frames));
    double t = 0.0;
    for (int i = 0; i < frames; ++i) {
        const double rise = i * 0.1 / s;
        const double fall = (i - toneEnd) * -0.1 / s;
        const double envelope = std::clamp(std::min(rise, fall), 0.0, 1.0);
        const double x = beepTone(t) * amplitude * envelope + beepGen.triangular();
        const std::int64_t q = std::clamp<std::int64_t>(roundToEven(x), -32768, 32767);
        samples[2 * i] = samples[2 * i + 1] = static_cast<std::int16_t>(q);
        t += 0.2 / s;
    }
    out.timeStart = out.timeEnd = nextTime();
    out.srcStart = out.srcEnd = nextFrame << 16;
    beepEndFrame = framesOut + frames;
    if (clock) clock->requestService();
}

} // namespace velorine
