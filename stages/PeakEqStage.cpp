#include "stages/PeakEqStage.h"

#include "chain/BlockPassing.h"
#include "chain/RingSearch.h"
#include "chain/WindowRead.h"

#include <algorithm>
#include <cstring>

namespace velorine {

namespace {
constexpr std::int64_t mostFrames = 1152; ///< of a block
}

void PeakEqStage::seek(int, const FxPos& pos) {
    nextInput = nextFrame = pos.whole;
}

bool PeakEqStage::process(FxArena& sampleArena, FxBlock& out, FxRing& in, int maxFrames) {
    if (maxFrames == 0 || in.empty()) return false;
    const bool made = enable.load(std::memory_order_relaxed)
                          ? filter(sampleArena, out, in)
                          : passBlock(sampleArena, out, in, converter, nextFrame, cursor);
    nextInput = nextFrame;
    return made;
}

bool PeakEqStage::filter(FxArena& sampleArena, FxBlock& out, const FxRing& in) {
    const std::int64_t ready = std::min(in.end() - nextFrame, mostFrames);
    if (ready <= 0) return false;
    const int frames = static_cast<int>(ready);

    const SampleFormat format{sampleType::float32, 2, formatAtFrame(in, nextFrame).rate, fullWidth};
    const FrameWindow window = readWindow(in, converter, format, nextFrame, frames);
    if (format.rate != rate) {
        std::ranges::transform(table, sections.begin(), [&](const PeakFilterRow& row) {
            return designPeak(row, format.rate);
        });
        rate = format.rate;
    }
    for (std::size_t i = 0; i < sections.size(); ++i)
        if (sections[i].active) filterPairs(sections[i], states[i], window.as<float>(), frames);
    std::memcpy(out.allocate(sampleArena, format, frames), window.samples.get(),
                static_cast<std::size_t>(frames) * 2 * sizeof(float));

    out.timeStart = timeAtFrame(in, nextFrame);
    out.srcStart = nextFrame << 16;
    nextFrame += frames;
    out.timeEnd = timeAtFrame(in, nextFrame);
    out.srcEnd = nextFrame << 16;
    return true;
}

} // namespace velorine
