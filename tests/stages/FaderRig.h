#pragma once

#include "chain/RingAppend.h"
#include "chain/RingSearch.h"
#include "stages/FaderStage.h"
#include "tests/support/Blocks.h"
#include "tests/support/FakeFxClock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

namespace velorine::test {

/// A fader between two rings, as a driver keeps them.
///
/// The host's audio is mono float, at 48 kHz and in pieces of 2304 frames unless a test appends
/// blocks of its own. `output` holds the samples by frame of the output axis; a rewind cuts it.
struct FaderRig {
    explicit FaderRig(int hostRate = 48000) : rate(hostRate) {
        clock.ring = &ring;
        stage.clock = &clock;
        stage.inRing = &ring;
        stage.outRing = &outRing;
    }

    FxTime timeOf(std::int64_t frame) const { return ticksPerSecond * frame / rate; }

    /// Appends constant audio.
    void append(std::int64_t frames, float level) {
        while (frames > 0) {
            const auto count = static_cast<int>(std::min<std::int64_t>(frames, 2304));
            appendBlock(std::vector<float>(static_cast<std::size_t>(count), level));
            frames -= count;
        }
    }

    /// Appends one mono float block.
    void appendBlock(const std::vector<float>& samples) {
        const std::int64_t begin = ring.end();
        appendTo(ring,
                 blockOf(arena, formatOf(sampleType::float32, 1, rate), samples, timeOf(begin),
                         timeOf(begin + static_cast<std::int64_t>(samples.size()))));
    }

    /// Asks for the next block and keeps it. @return what the stage returned
    bool process(int maxFrames = 1152) {
        FxBlock block;
        stage.standing = false;
        const std::int64_t before = stage.framesOut;
        const bool delivered = stage.process(arena, block, ring, maxFrames);
        EXPECT_EQ(stage.framesOut, before + (delivered ? block.frames() : 0));
        if (!delivered) return false;
        if (block.format.type == sampleType::float32 && block.format.channels == 1) {
            const auto samples = samplesOf<float>(block);
            output.insert(output.end(), samples.begin(), samples.end());
        } else {
            output.resize(output.size() + static_cast<std::size_t>(block.frames()), NAN);
        }
        last = block;
        commitTo(outRing, std::move(block));
        EXPECT_EQ(stage.framesOut, outRing.end());
        return true;
    }

    /// Processes until the output axis reaches `frame`, the input ends, or the stage stands.
    void runTo(std::int64_t frame, int maxFrames = 1152) {
        while (stage.framesOut < frame && process(maxFrames) && !stage.standing) {
        }
    }
    void runAll(int maxFrames = 1152) {
        while (process(maxFrames) && !stage.standing) {
        }
    }

    /// The chain is cut at output frame `frame`.
    void rewindTo(std::int64_t frame) {
        const FxPos pos = sourceAt(outRing, frame);
        const auto delta = static_cast<int>(frame - outRing.end());
        outRing.truncate(frame);
        stage.seek(delta, pos);
        output.resize(static_cast<std::size_t>(frame));
    }

    /// Drops what isn't needed any more once output frame `played` is under the speakers.
    void trim(std::int64_t played) {
        const FxPos pos = sourceAt(outRing, played);
        const std::int64_t needed =
            stage.inputStartFor(static_cast<int>(played - outRing.end()), pos);
        while (outRing.count() > 2 && outRing.oldest().posEnd <= played)
            outRing.pop();
        while (ring.count() > 2 && ring.oldest().posEnd <= needed)
            ring.pop();
    }

    float at(std::int64_t frame) const { return output.at(static_cast<std::size_t>(frame)); }

    const int rate;
    FakeFxClock clock;
    FxArena arena;
    FxRing ring;
    FxRing outRing;
    FaderStage stage;
    std::vector<float> output;
    FxBlock last; ///< delivered last
};

/// The fields of a record, in order.
inline std::vector<std::int64_t> fieldsOf(const FadeRecord& record) {
    return {record.oldFrom,     record.oldTo,  record.oldHoldFrom, record.oldHoldTo,
            record.inFrom,      record.inTo,   record.spliceStart, record.spliceEnd,
            record.silentAfter, record.resume, record.linear};
}

} // namespace velorine::test
