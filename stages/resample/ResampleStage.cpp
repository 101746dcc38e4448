#include "stages/resample/ResampleStage.h"

#include "chain/BlockPassing.h"
#include "chain/RingSearch.h"
#include "config/RegistryNode.h"
#include "foundation/CpuFeatures.h"
#include "foundation/Rounding.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <memory>

namespace velorine {

namespace {

constexpr int fewestFrames = 128; ///< of a block; less waits for more input
constexpr int mostFrames = 512;   ///< so that what is worked on stays in the cache

/// Stream time at a place between two frames.
FxTime timeAt(const FxRing& ring, const FxPos& pos) {
    const FxTime before = timeAtFrame(ring, pos.whole);
    const auto span = static_cast<double>(timeAtFrame(ring, pos.whole + 1) - before);
    return before + roundToEven(span * static_cast<double>(pos.frac >> 11) * 0x1p-53);
}

} // namespace

ResampleStage::ResampleStage(std::uint32_t allowedFeatures) : features(allowedFeatures) {
    // 32 bits hold what the stages before yield: nothing to dither, and tracks that are one song
    // sound as one to the last bit.
    converter.dither = false;
}

ResampleStage::ResampleStage() : ResampleStage(cpuFeatures()) {}

void ResampleStage::exchangeSettings(RegistryNode& node) {
    bool on = enable.load(std::memory_order_relaxed);
    float outRate = srate.load(std::memory_order_relaxed);
    auto edge = static_cast<float>(rolloff.load(std::memory_order_relaxed));
    auto attenuation = static_cast<float>(filter.stopband);
    double tempo = speed.load(std::memory_order_relaxed);
    node.exchangeBool("Resample", "enable", on);
    node.exchangeFloat("Resample", "srate", outRate);
    node.exchangeFloat("Resample", "rolloff", edge);
    node.exchangeInt("Resample", "accuracy", filter.accuracy);
    node.exchangeBool("Resample", "dither", dither);
    node.exchangeFloat("Resample", "stopband", attenuation);
    node.exchangeInt("Resample", "tableup", filter.tableRows);
    node.exchangeDouble("Resample", "speed", tempo);
    if (node.mode == RegistryNode::write) return;
    enable.store(on, std::memory_order_relaxed);
    srate.store(outRate, std::memory_order_relaxed);
    rolloff.store(static_cast<double>(edge), std::memory_order_relaxed);
    filter.stopband = static_cast<double>(attenuation);
    filter.redesign = true;
    speed.store(tempo, std::memory_order_relaxed);
}

bool ResampleStage::isOn() const {
    return enable.load(std::memory_order_relaxed);
}

std::int64_t ResampleStage::inputEndFor(int, const FxPos& from) {
    return isOn() ? from.whole + static_cast<std::int64_t>(filter.halfLength) + 1 : from.ceil();
}

std::int64_t ResampleStage::inputStartFor(int, const FxPos& from) {
    return isOn() ? from.whole - filter.taps - 1 : from.whole;
}

void ResampleStage::reset() {
    if (!scratch.empty()) scratch.clearTo(scratch.endMarker());
}

void ResampleStage::seek(int delta, const FxPos& to) {
    pos = to;
    nextInput = to.whole;
    framesOut += delta;
}

void ResampleStage::checkPlace(std::int64_t ringEnd) const {
    assert(framesOut == ringEnd);
    static_cast<void>(ringEnd);
}

bool ResampleStage::process(FxArena& sampleArena, FxBlock& out, FxRing& in, int maxFrames) {
    if (maxFrames == 0 || in.empty()) return false;
    bool made = false;
    if (isOn()) {
        const int index = std::min(indexAt(in, pos.whole), in.count() - 1);
        sourceRate = static_cast<float>(in.at(index).format.rate);
        const float wanted = srate.load(std::memory_order_relaxed);
        const auto outRate = static_cast<double>(wanted > 0.0F ? wanted : sourceRate);
        const double ratio = ratioFor(outRate);
        const bool usable = ratio >= 1.0 / highestRatio && ratio <= highestRatio;
        made = usable ? resample(sampleArena, out, in, outRate) : passThrough(sampleArena, out, in);
    } else {
        made = passThrough(sampleArena, out, in);
    }
    if (!made) return false;
    framesOut += out.frames();
    nextInput = pos.whole;
    return true;
}

bool ResampleStage::passThrough(FxArena& sampleArena, FxBlock& out, const FxRing& in) {
    pos.frac = 0;
    return passBlock(sampleArena, out, in, converter, pos.whole, cursor);
}

double ResampleStage::ratioFor(double outRate) const {
    return static_cast<double>(sourceRate) / outRate * speed.load(std::memory_order_relaxed);
}

bool ResampleStage::resample(FxArena& sampleArena, FxBlock& out, const FxRing& in, double outRate) {
    const double edge = rolloff.load(std::memory_order_relaxed);
    if (edge != designedFor) filter.redesign = true;
    filter.rolloff = designedFor = edge;
    const double ratio = ratioFor(outRate);
    filter.setRatio(ratio);
    filter.rate = outRate;
    filter.design();

    const int need = filter.taps + 4;
    const FxPos step = FxPos::fromDouble(ratio);
    const auto left = static_cast<double>(in.newest().posEnd - pos.whole - need - 1);
    const int frames = static_cast<int>(std::min<double>(std::floor(left / ratio), mostFrames));
    if (frames < fewestFrames) return false;

    const int windowFrames = 2 * filter.taps + 8 + static_cast<int>(std::ceil(frames * ratio + 1));
    const SampleFormat format{sampleType::int32, 2, static_cast<std::int32_t>(std::lround(outRate)),
                              fullWidth};
    const FrameWindow window =
        readWindow(in, converter, format, pos.whole - need + 1, windowFrames);
    const std::unique_ptr<void, MemDeleter> scratchMemory{
        memAlloc(static_cast<std::size_t>(windowFrames + 16) * 2 * sizeof(double))};

    const bool reducedBits = dither && filter.accuracy > 0;
    const ResampleKernel& kernel = resampleKernel(features, filter.needsDouble, reducedBits);
    ResampleRun run{};
    run.filter = &filter;
    run.window = window.as<std::int32_t>();
    run.windowFrames = windowFrames;
    run.firstTap = need - filter.taps; // of the window, which begins `need - 1` before the position
    run.position = pos;
    run.step = step;
    run.frames = frames;
    run.to = static_cast<std::int32_t*>(out.allocate(sampleArena, format, frames));
    run.scratch = scratchMemory.get();
    run.shift = kernel.dithers && reducedBits ? std::max(32 - filter.accuracy, 0) : 0;
    const double fullScale = std::ldexp(1.0, 31 - run.shift);
    run.gain = (fullScale - 1.0) / fullScale / std::ldexp(1.0, run.shift);
    run.dither = &ditherGen;
    kernel.run(run);

    out.timeStart = timeAt(in, pos);
    out.srcStart = pos.toFixed();
    pos += step * static_cast<std::uint32_t>(frames);
    out.timeEnd = timeAt(in, pos);
    out.srcEnd = pos.toFixed();
    return true;
}

} // namespace velorine
