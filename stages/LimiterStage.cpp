#include "stages/LimiterStage.h"

#include "chain/BlockPassing.h"
#include "chain/RingSearch.h"
#include "chain/WindowRead.h"
#include "config/RegistryNode.h"
#include "foundation/CpuFeatures.h"

#include <algorithm>
#include <cmath>

namespace velorine {

LimiterStage::LimiterStage(std::uint32_t features) : kernels(limiterKernels(features)) {
    required.resize(mostFrames + limiterLook);
    gains.resize(mostFrames);
}

LimiterStage::LimiterStage() : LimiterStage(cpuFeatures()) {}

void LimiterStage::exchangeSettings(RegistryNode& node) {
    bool on = enable.load(std::memory_order_relaxed);
    node.exchangeBool("Limiter", "enable", on);
    enable.store(on, std::memory_order_relaxed);
}

void LimiterStage::seek(int, const FxPos& pos) {
    nextInput = nextFrame = pos.whole;
}

bool LimiterStage::process(FxArena& sampleArena, FxBlock& out, FxRing& in, int maxFrames) {
    if (maxFrames == 0 || in.empty()) return false;
    const bool made = enable.load(std::memory_order_relaxed)
                          ? limit(sampleArena, out, in)
                          : passBlock(sampleArena, out, in, converter, nextFrame, cursor);
    nextInput = nextFrame;
    return made;
}

bool LimiterStage::limit(FxArena& sampleArena, FxBlock& out, const FxRing& in) {
    const std::int64_t ready =
        std::min<std::int64_t>(in.end() - limiterLook - nextFrame, mostFrames);
    if (ready <= 0) return false;
    const int frames = static_cast<int>(ready);

    const SampleFormat format{sampleType::float32, 2, formatAtFrame(in, nextFrame).rate, fullWidth};
    const FrameWindow window = readWindow(in, converter, format, nextFrame, frames + limiterLook);
    const double rise = 1.0 / std::pow(0.5, 1.0 / (rate * 0.001)); // doubles in 1 ms
    kernels.require(window.as<float>(), frames + limiterLook, required.data());
    LimiterRun run{required.data(), frames, rise, gain, gains.data()};
    kernels.follow(run);
    gain = run.gain;
    kernels.apply(window.as<float>(), gains.data(), frames,
                  static_cast<float*>(out.allocate(sampleArena, format, frames)));

    out.timeStart = timeAtFrame(in, nextFrame);
    out.srcStart = nextFrame << 16;
    nextFrame += frames;
    out.timeEnd = timeAtFrame(in, nextFrame);
    out.srcEnd = nextFrame << 16;
    return true;
}

} // namespace velorine
