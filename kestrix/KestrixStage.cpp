#include "kestrix/KestrixStage.h"

#include "chain/BlockPassing.h"
#include "chain/RingSearch.h"
#include "chain/WindowRead.h"
#include "foundation/CpuFeatures.h"
#include "kestrix/HannWindow.h"

#include <algorithm>
#include <cstring>

namespace velorine {

namespace {

float* parts(Complex* values) {
    return reinterpret_cast<float*>(values);
}

const float* parts(const Complex* values) {
    return reinterpret_cast<const float*>(values);
}

} // namespace

KestrixStage::KestrixStage(std::uint32_t features)
    : kernels(kestrixKernels(features)), sizes(computeFrameSizes(rate)) {}

KestrixStage::KestrixStage() : KestrixStage(cpuFeatures()) {}

void KestrixStage::exchangeSettings(RegistryNode& node) {
    parameters.exchange(node);
    rebuildPending = true;
}

std::int64_t KestrixStage::inputStartFor(int, const FxPos& pos) {
    if (!parameters.enable) return pos.whole;
    history.prune(pos.whole);
    return pos.whole - 2 * std::int64_t{sizes.padLen};
}

void KestrixStage::reset() {
    dynamics.restart();
    resetPending = true;
}

void KestrixStage::seek(int delta, const FxPos& pos) {
    if (delta != 0) reset();
    stagePos = pos;
    nextInput = pos.whole;
}

int KestrixStage::lagFrames() const {
    return parameters.enable ? sizes.frameLen / 2 : 0;
}

void KestrixStage::levelsAt(FxTime time, double (&levels)[kestrixBands]) const {
    history.levelsAt(time, levels);
}

bool KestrixStage::process(FxArena& sampleArena, FxBlock& out, FxRing& in, int maxFrames) {
    if (maxFrames == 0 || in.empty()) return false;
    const bool made = parameters.enable ? processEnabled(sampleArena, out, in)
                                        : passThrough(sampleArena, out, in);
    nextInput = stagePos.whole;
    return made;
}

bool KestrixStage::passThrough(FxArena& sampleArena, FxBlock& out, const FxRing& in) {
    resetPending = true;
    stagePos.frac = 0;
    return passBlock(sampleArena, out, in, converter, stagePos.whole, cursor);
}

bool KestrixStage::processEnabled(FxArena& sampleArena, FxBlock& out, const FxRing& in) {
    const int index = std::min(indexAt(in, stagePos.whole), in.count() - 1);
    const auto inputRate = static_cast<float>(in.at(index).format.rate);
    if (inputRate != rate) {
        rate = inputRate;
        rebuildPending = true;
    }
    if (rebuildPending) sizes = computeFrameSizes(rate);
    const std::int64_t need = stagePos.whole + sizes.fftLen / 2;
    if (in.newest().posEnd - need < sizes.frameLen) return false;
    if (rebuildPending) {
        resetPending = true;
        rebuildFilters();
    }

    const int hop = sizes.hop();
    const std::int64_t start = resetPending ? need - sizes.warmUp() : need;
    for (std::int64_t frame = start; frame < need; frame += hop) {
        runFrame(in, frame, false);
        overlap.advance(kernels);
    }
    runFrame(in, need, true);
    const Complex* const pairs = overlap.advance(kernels);
    resetPending = false;

    SampleFormat format;
    format.type = sampleType::float32;
    format.rate = static_cast<std::int32_t>(rate);
    auto* const samples = static_cast<float*>(out.allocate(sampleArena, format, hop));
    if (parameters.softclip)
        kernels.clipPairs(parts(pairs), hop, samples);
    else
        std::memcpy(samples, pairs, static_cast<std::size_t>(hop) * sizeof *pairs);
    out.timeStart = timeAtFrame(in, stagePos.whole);
    out.timeEnd = timeAtFrame(in, stagePos.whole + hop);
    out.srcStart = stagePos.toFixed();
    stagePos.whole += hop;
    out.srcEnd = stagePos.toFixed();
    return true;
}

void KestrixStage::rebuildFilters() {
    rebuildPending = false;
    filters.rebuild(parameters, rate, sizes);
    overlap.reset(sizes);
    if (bins.count() != sizes.fftLen) {
        timeFrame.resize(sizes.fftLen);
        bins.resize(sizes.fftLen);
        response.resize(sizes.fftLen / 2 + 1);
        energy.resize(sizes.fftLen / 2);
        difference.resize(sizes.fftLen / 2);
    }
    if (window.count() != sizes.frameLen) {
        timeFrame.clear();
        window.resize(sizes.frameLen);
        for (int i = 0; i < sizes.frameLen; ++i)
            window[i] = static_cast<float>(hann(
                static_cast<double>(static_cast<float>(i) / static_cast<float>(sizes.frameLen))));
    }
}

/// Runs the frame that begins at input frame `frame`, into the overlap's next buffer.
void KestrixStage::runFrame(const FxRing& in, std::int64_t frame, bool isLast) {
    SampleFormat format;
    format.type = sampleType::float32;
    format.rate = static_cast<std::int32_t>(rate);
    const FrameWindow input = readWindow(in, converter, format, frame, sizes.frameLen);
    Complex* const centred = timeFrame.data() + (sizes.fftLen - sizes.frameLen) / 2;
    kernels.windowPairs(input.as<float>(), window.data(), sizes.frameLen, parts(centred));
    filters.forwardPlan.execute(timeFrame.data(), bins.data());
    const std::int64_t middle = frame + sizes.frameLen / 2;
    processFrame(bins.data(), isLast, middle, timeAtFrame(in, middle));
    filters.inversePlan.execute(bins.data(), overlap.next());
}

/// Measures and weighs one spectrum, `fftLen` bins, in place.
///
/// @param isLast    the frame is heard, and no warm-up
/// @param position  input frame in its middle
void KestrixStage::processFrame(Complex* spectrum, bool isLast, std::int64_t position,
                                FxTime time) {
    BandLevelRecord record;
    measureBands(spectrum, record.level);
    dynamics.followReference(parameters);
    double gains[kestrixBands];
    for (int b = 0; b < kestrixBands; ++b)
        gains[b] = dynamics.gain(b, parameters, filters.effectAmount());
    weighSpectrum(spectrum, gains);
    dynamics.followReference(parameters);
    if (!isLast) return;
    record.time = time;
    record.position = position;
    history.append(record);
}

void KestrixStage::measureBands(const Complex* spectrum, double (&level)[kestrixBands]) {
    kernels.measureBins(parts(spectrum), sizes.fftLen, energy.data(), difference.data());
    for (int b = 0; b < kestrixBands; ++b) {
        const int from = std::max(filters.weighted(b).low, 1);
        const int to = std::min(filters.weighted(b).high, sizes.fftLen / 2);
        double sums[2];
        kernels.weightedSums(filters.weight(b) + from, energy.data() + from,
                             difference.data() + from, std::max(to - from, 0), sums);
        level[b] = dynamics.measure(b, sums[0], sums[1]);
    }
}

/// Gives each band its gain: all filters are added up to one response first. In the upper half a
/// band reaches two bins further than in the lower one; those are added bin by bin.
void KestrixStage::weighSpectrum(Complex* spectrum, const double (&gains)[kestrixBands]) {
    const int n = sizes.fftLen;
    struct Further {
        int bin;
        Complex value;
    } further[2 * kestrixBands];
    int furtherCount = 0;

    response.clear();
    for (int b = 0; b < kestrixBands; ++b) {
        const auto gain = static_cast<float>(gains[b]);
        const BandFilters::Range range = filters.range(b);
        const Complex* const filter = filters.spectrum(b);
        kernels.addScaled(parts(filter + range.low), gain, 2 * (range.high - range.low),
                          parts(response.data() + range.low));
        for (int k = std::max(range.high, 1); k < std::min(range.high + 2, n / 2); ++k)
            further[furtherCount++] = {n - k, spectrum[n - k] * (filter[n - k] * gain)};
    }
    kernels.applyResponse(parts(spectrum), parts(response.data()), n);
    for (int i = 0; i < furtherCount; ++i)
        spectrum[further[i].bin] += further[i].value;
}

} // namespace velorine
