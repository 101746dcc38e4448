#include "stages/MixerStage.h"

#include "chain/BlockPassing.h"
#include "chain/WindowRead.h"
#include "config/RegistryNode.h"
#include "foundation/Rounding.h"
#include "stages/QuadMix.h"

#include <algorithm>
#include <cstring>

namespace velorine {

namespace {
constexpr std::int64_t mostFrames = 1152; ///< of a block
constexpr double longestDelay = 1e9;      ///< frames: whatever a setting says, sums stay valid
} // namespace

void MixerStage::exchangeSettings(RegistryNode& node) {
    bool on = enable.load(std::memory_order_relaxed);
    double seconds = antidelay.load(std::memory_order_relaxed);
    bool inverted = invertrear.load(std::memory_order_relaxed);
    bool front = fronton.load(std::memory_order_relaxed);
    bool rear = rearon.load(std::memory_order_relaxed);
    node.exchangeBool("Mixer", "enable", on);
    node.exchangeDouble("Mixer", "antidelay", seconds);
    node.exchangeBool("Mixer", "invertrear", inverted);
    node.exchangeBool("Mixer", "fronton", front);
    node.exchangeBool("Mixer", "rearon", rear);
    enable.store(on, std::memory_order_relaxed);
    antidelay.store(seconds, std::memory_order_relaxed);
    invertrear.store(inverted, std::memory_order_relaxed);
    fronton.store(front, std::memory_order_relaxed);
    rearon.store(rear, std::memory_order_relaxed);
}

std::int64_t MixerStage::delayFrames() const {
    const double frames = rate * antidelay.load(std::memory_order_relaxed);
    return frames > 0.0 ? roundToEven(std::min(frames, longestDelay)) : 0;
}

std::int64_t MixerStage::inputEndFor(int, const FxPos& pos) {
    return pos.ceil() + (enable.load(std::memory_order_relaxed) ? delayFrames() : 0);
}

void MixerStage::seek(int, const FxPos& pos) {
    nextInput = nextFrame = pos.whole;
}

bool MixerStage::process(FxArena& sampleArena, FxBlock& out, FxRing& in, int maxFrames) {
    if (maxFrames == 0 || in.empty()) return false;
    const bool made = enable.load(std::memory_order_relaxed)
                          ? mix(sampleArena, out, in)
                          : passBlock(sampleArena, out, in, converter, nextFrame, cursor);
    nextInput = nextFrame;
    return made;
}

bool MixerStage::mix(FxArena& sampleArena, FxBlock& out, const FxRing& in) {
    rate = formatAtFrame(in, nextFrame).rate;
    const std::int64_t delay = delayFrames();
    const std::int64_t ready = std::min(in.end() - delay - nextFrame, mostFrames);
    if (ready < 1) return false;
    const int frames = static_cast<int>(ready);

    const FrameWindow front = readWindow(in, converter, {}, nextFrame, frames);
    const SampleFormat ahead = formatAtFrame(in, nextFrame + delay);
    SampleFormat format = front.format;
    if (canMixQuad(format) && ahead.type == format.type && ahead.channels == format.channels &&
        ahead.rate == format.rate) {
        const FrameWindow rear = readWindow(in, converter, format, nextFrame + delay, frames);
        const QuadSwitches switches{invertrear.load(std::memory_order_relaxed),
                                    rearon.load(std::memory_order_relaxed),
                                    fronton.load(std::memory_order_relaxed)};
        format.channels = 4;
        mixQuad(front.format, front.samples.get(), rear.samples.get(), frames, switches,
                out.allocate(sampleArena, format, frames));
    } else {
        std::memcpy(out.allocate(sampleArena, format, frames), front.samples.get(),
                    static_cast<std::size_t>(frames) *
                        static_cast<std::size_t>(bytesPerFrame(format)));
    }
    out.timeStart = front.timeStart;
    out.timeEnd = front.timeEnd;
    out.srcStart = nextFrame << 16;
    nextFrame += frames;
    out.srcEnd = nextFrame << 16;
    return true;
}

} // namespace velorine
