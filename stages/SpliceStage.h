#pragma once

#include "chain/FxStage.h"
#include "stages/SpliceFade.h"
#include "stages/SpliceKernels.h"

#include <atomic>
#include <cstdint>

namespace velorine {

/// Changes the stream's tempo and keeps its pitch: it is read in pieces of one grain, each faded
/// into the one before, which overlap or leave out as much as the tempo wants.
///
/// In:  any format. Out: 16-bit integers, mono or stereo as the input, a grain at a time; at the
///      stream's own tempo up to 1152 frames, and with a level of 1 as well the input by reference.
/// Threads: the pump's; `level` and `ratio` from any thread, read once a block (relaxed).
class SpliceStage final : public FxStage {
public:
    /// @param features  `cpuFeature` bits that may be used
    explicit SpliceStage(std::uint32_t features);
    SpliceStage();

    int alignRewind(int delta, const FxPos& pos) override;
    std::int64_t inputStartFor(int delta, const FxPos& pos) override;
    void seek(int delta, const FxPos& pos) override;
    bool process(FxArena& arena, FxBlock& out, FxRing& in, int maxFrames) override;

    std::atomic<double> level{1.0}; ///< linear
    std::atomic<double> ratio{1.0}; ///< input frames a frame of output, above 0

private:
    bool scale(FxArena& sampleArena, FxBlock& out, const FxRing& in, const SampleFormat& format);
    bool splice(FxArena& sampleArena, FxBlock& out, const FxRing& in, const SampleFormat& format,
                double tempo);
    void stamp(FxBlock& out, const FxRing& in, const FxPos& end);
    std::int64_t fixedLevel() const;
    int grain() const;

    const SpliceKernels& kernels;
    FxPos pos;                 ///< input frame that the next block begins at
    std::int32_t rate = 48000; ///< of the stream, Hz
    std::int32_t cursor = 0;   ///< absolute number of the block that the pass-through reads next
    SpliceFade fade;
};

} // namespace velorine
