#pragma once

#include "chain/FxStage.h"
#include "chain/WindowRead.h"
#include "foundation/SmallRing.h"
#include "stages/FadeRecord.h"

#include <cstdint>

namespace velorine {

/// Second stage: every fade of the system happens here.
///
/// A short list of records says at which output frames the stream leaves one run of input frames
/// for another. While the two overlap they are mixed with a ramp; the old side is read from the
/// input ring again, so one stream of blocks serves as both sides, and a record made inside a
/// running fade plays that fade on as its old side.
///
/// In:  any format. Out: the same by reference outside of splices; inside, 16-bit and 32-bit
/// integers
///      and float as they are, everything else as float.
/// Threads: the pump's; `schedule` with the pump lock held.
class FaderStage final : public FxStage {
public:
    std::int64_t inputStartFor(int delta, const FxPos& pos) override;
    void seek(int delta, const FxPos& pos) override;
    bool process(FxArena& arena, FxBlock& out, FxRing& in, int maxFrames) override;
    void checkPlace(std::int64_t ringEnd) const override;

    /// True once the stage has run: before that there is nothing that could fade.
    bool hasRun() const noexcept { return input != nullptr; }

    /// Leaves what plays now for the audio at stream time `at`.
    ///
    /// @param from         stream time of the splice, -1 for the next frame that the stage makes
    /// @param at           stream time of the audio that follows
    /// @param durationMs   length of the overlap
    /// @param out          true: linear law, as for a stop; false: equal power
    /// @param kind         0: the two sides are mixed. 1: the old side only fades, and behind it
    /// the
    ///                     stream falls silent and stands until a further record
    /// @param actual       not null: the frames that the overlap got
    /// @param mayBeBehind  whether the audio that follows may lie before what plays now
    /// @param spliceMs     kind 1: silence that follows before the stream stands; it flushes what
    /// the
    ///                     stages behind look ahead
    /// @return stream time at which the new side joins; `at` when the stage has never run
    FxTime schedule(FxTime from, FxTime at, int durationMs, bool out, int kind,
                    std::int64_t* actual, bool mayBeBehind, int spliceMs);

    std::int64_t framesOut = 0; ///< number of the next output frame; a rewind moves it back
    SmallRing<FadeRecord> records;

private:
    /// Part of the stream as the records mix it.
    struct Mix {
        static constexpr int standing = -1;

        int frames = 0; ///< `standing`, or 0: there isn't enough input yet
        FrameWindow window;
        std::int64_t inFrom = 0; ///< input frames that stand for the time of it
        std::int64_t inTo = 0;
    };
    struct InputPlace {
        std::int64_t frame = 0;
        bool standing = false;
    };

    static constexpr int keptRecords = 32;

    bool onPlainPath() const;
    Mix mixAt(std::int64_t p, int k, int frames);
    Mix mixBefore(const FadeRecord& record, std::int64_t p, int k, int frames);
    Mix mixInside(const FadeRecord& record, std::int64_t p, int k, int frames);
    Mix silence(std::int64_t inputFrame, int frames) const;
    Mix inputFrames(std::int64_t frame, int frames);
    InputPlace inputAt(std::int64_t p, int k) const;
    std::int64_t reach(std::int64_t p, int k) const;
    std::int64_t oldAudioLeft(std::int64_t outFrame, std::int64_t inputFrame,
                              std::int64_t audioEnd) const;
    int rateAt(std::int64_t inputFrame) const;

    FxRing* input = nullptr;     ///< the ring last passed to `process`
    std::int32_t cursor = 0;     ///< absolute number of the block that the plain path reads next
    std::int64_t baseOffset = 0; ///< input frame less output frame before the first record
};

} // namespace velorine
