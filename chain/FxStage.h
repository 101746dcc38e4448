#pragma once

#include "foundation/FxArena.h"
#include "foundation/FxBlock.h"
#include "foundation/FxPos.h"
#include "foundation/FxRing.h"
#include "stages/convert/SampleConverter.h"

#include <cstdint>

namespace velorine {

class FxClock;
class RegistryNode;

/// One stage of the chain: it reads the ring of the stage before it and makes the blocks of its
/// own.
///
/// The rings keep their blocks until the speakers have passed them, so a stage can be sent back:
/// the driver cuts the stage's ring, works out with `inputEndFor` how much input its remaining
/// output took, and calls `seek`. Positions passed as `FxPos` are in the stage's input, in frames;
/// `delta` is the distance from the end of the stage's ring to the new end, in output frames, 0 or
/// below.
///
/// All operations run on the thread that holds the pump lock.
class FxStage {
public:
    FxStage() = default;
    virtual ~FxStage() = default;
    FxStage(const FxStage&) = delete;
    FxStage& operator=(const FxStage&) = delete;

    /// Loads or saves the stage's settings. Host's or dialog's thread, while the pump stands.
    virtual void exchangeSettings(RegistryNode&) {}

    /// Input up to this frame must be there to have produced output up to `pos`.
    virtual std::int64_t inputEndFor(int /*delta*/, const FxPos& pos) { return pos.ceil(); }

    /// The nearest distance to `delta` that the stage can go back.
    virtual int alignRewind(int delta, const FxPos& /*pos*/) { return delta; }

    /// Input before this frame isn't needed any more for output from `pos` on.
    virtual std::int64_t inputStartFor(int /*delta*/, const FxPos& pos) { return pos.whole; }

    /// Forgets what the stage remembers of the stream; settings stay.
    virtual void reset() {}

    /// The stage reads on at `pos`.
    virtual void seek(int /*delta*/, const FxPos& pos) { nextInput = pos.whole; }

    /// Makes the next block.
    ///
    /// @param out        a new block; samples, times, source span and format are set here, the
    ///                   positions by the driver
    /// @param maxFrames  a hint; 0: nothing is wanted, and only a stage that can mark its position
    ///                   delivers an empty block
    /// @return false: nothing to deliver yet, and nothing has changed. True: `out` is a block,
    /// maybe
    ///         an empty one.
    virtual bool process(FxArena& arena, FxBlock& out, FxRing& in, int maxFrames) = 0;

    /// True: the driver lets the stage mark its position instead of reading on.
    virtual bool held() const { return false; }

    /// Frames by which the stage's audio lags the times that it stamps on it.
    virtual int lagFrames() const { return 0; }

    /// Debug builds: asserts that the stage stands at the end of its ring, `ringEnd`.
    virtual void checkPlace(std::int64_t /*ringEnd*/) const {}

    /// Whether the block just delivered says that the stream stands: it is empty, and nothing was
    /// read for it. Set by `process`, cleared by the driver before each call.
    bool standing = false;

    SampleConverterHandle converter; ///< for input in a foreign format
    FxRing scratch;                  ///< private to the stage, if it needs one
    FxRing* inRing = nullptr;        ///< null in the first stage, as all before `start`
    FxRing* outRing = nullptr;
    FxClock* clock = nullptr;
    FxArena* arena = nullptr;
    std::int64_t nextInput = 0; ///< input frame that is read next

protected:
    /// Makes `out` the well-formed empty block that marks a position: 16-bit stereo at 48 kHz.
    static void markPosition(FxBlock& out, FxTime time, std::int64_t inputFrame);
};

} // namespace velorine
