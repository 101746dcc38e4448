#include "stages/SpliceStage.h"

#include "chain/BlockPassing.h"
#include "chain/RingSearch.h"
#include "chain/WindowRead.h"
#include "foundation/CpuFeatures.h"
#include "foundation/Rounding.h"

#include <algorithm>
#include <cstdlib>

namespace velorine {

namespace {

constexpr std::int64_t mostScaled = 1152; ///< frames of a block that only the level is applied to
constexpr double highestLevel = 0x1p40;   ///< in 1/256: its products fit 64 bits

/// Near the stream's own tempo the pieces are much alike, and a fade of two that are a little apart
/// would be a comb filter: there it is a switch in the grain's middle.
double steepnessFor(double ratio) {
    return ratio < 0.98 || ratio > 1.02 ? 1.8 : 99999.9;
}

} // namespace

SpliceStage::SpliceStage(std::uint32_t features) : kernels(spliceKernels(features)) {}

SpliceStage::SpliceStage() : SpliceStage(cpuFeatures()) {}

int SpliceStage::grain() const {
    return spliceGrain(rate, ratio.load(std::memory_order_relaxed));
}

std::int64_t SpliceStage::fixedLevel() const {
    const double fixed = level.load(std::memory_order_relaxed) * 256.0;
    return roundToEven(std::clamp(fixed, -highestLevel, highestLevel));
}

int SpliceStage::alignRewind(int delta, const FxPos&) {
    if (ratio.load(std::memory_order_relaxed) == 1.0) return delta;
    const int frames = grain();
    return frames * (delta / frames);
}

std::int64_t SpliceStage::inputStartFor(int, const FxPos& from) {
    return ratio.load(std::memory_order_relaxed) == 1.0 ? from.whole : from.whole - grain();
}

void SpliceStage::seek(int delta, const FxPos& to) {
    // The ring keeps 1/65536 of a frame, and whole frames are read: what was rounded off could come
    // to one of them. Where the same steps led here, they lead back exactly.
    const FxPos step = FxPos::fromDouble(ratio.load(std::memory_order_relaxed));
    const FxPos exact = pos - step * static_cast<std::uint32_t>(-std::min(delta, 0));
    pos = std::abs(exact.toFixed() - to.toFixed()) <= 1 ? exact : to;
    nextInput = pos.whole;
}

bool SpliceStage::process(FxArena& sampleArena, FxBlock& out, FxRing& in, int maxFrames) {
    if (maxFrames == 0 || in.empty()) return false;
    const double tempo = ratio.load(std::memory_order_relaxed);
    SampleFormat format = formatAtFrame(in, pos.whole);
    format = {sampleType::int16, format.channels == 1 ? 1 : 2, format.rate, fullWidth};
    rate = format.rate;
    bool made = false;
    if (tempo != 1.0) {
        made = splice(sampleArena, out, in, format, tempo);
    } else {
        pos.frac = 0;
        made = level.load(std::memory_order_relaxed) == 1.0
                   ? passBlock(sampleArena, out, in, converter, pos.whole, cursor)
                   : scale(sampleArena, out, in, format);
    }
    nextInput = pos.whole;
    return made;
}

bool SpliceStage::scale(FxArena& sampleArena, FxBlock& out, const FxRing& in,
                        const SampleFormat& format) {
    const std::int64_t ready = std::min(in.end() - pos.whole, mostScaled);
    if (ready <= 0) return false;
    const int frames = static_cast<int>(ready);
    const FrameWindow window = readWindow(in, converter, format, pos.whole, frames);
    scaleSamples(window.as<std::int16_t>(), frames * format.channels, fixedLevel(),
                 static_cast<std::int16_t*>(out.allocate(sampleArena, format, frames)));
    stamp(out, in, pos + FxPos::fromFrame(frames));
    return true;
}

bool SpliceStage::splice(FxArena& sampleArena, FxBlock& out, const FxRing& in,
                         const SampleFormat& format, double tempo) {
    const int frames = spliceGrain(format.rate, tempo);
    const FxPos end = pos + FxPos::fromDouble(tempo) * static_cast<std::uint32_t>(frames);
    if (in.end() < std::max(pos.whole + frames, end.whole)) return false;

    const FrameWindow outgoing = readWindow(in, converter, format, pos.whole, frames);
    const FrameWindow incoming = readWindow(in, converter, format, end.whole - frames, frames);
    // Two pieces that are the same add up by their amplitudes, any others by their power.
    fade.design(frames, steepnessFor(tempo), end.whole - pos.whole == frames ? 1.0 : 0.5);
    SpliceRun run{};
    run.outgoing = outgoing.as<std::int16_t>();
    run.incoming = incoming.as<std::int16_t>();
    run.weights = fade.weights();
    run.frames = frames;
    run.channels = format.channels;
    run.level = fixedLevel();
    run.out = static_cast<std::int16_t*>(out.allocate(sampleArena, format, frames));
    kernels.mixGrain(run);
    stamp(out, in, end);
    return true;
}

/// The block covers the input from `pos` to `end`, and `pos` moves there.
void SpliceStage::stamp(FxBlock& out, const FxRing& in, const FxPos& end) {
    out.timeStart = timeAtFrame(in, pos.whole);
    out.srcStart = pos.toFixed();
    pos = end;
    out.timeEnd = timeAtFrame(in, pos.whole);
    out.srcEnd = pos.toFixed();
}

} // namespace velorine
