#include "stages/FaderStage.h"

#include "chain/BlockPassing.h"
#include "chain/FxClock.h"
#include "chain/RingSearch.h"
#include "foundation/Rounding.h"
#include "stages/FadeRamp.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <utility>

namespace velorine {

namespace {

constexpr std::int64_t heldBack = 256; ///< frames kept before the oldest that a record can read

/// Types that the ramps know; others are brought to float first.
SampleFormat rampFormat(SampleFormat format) {
    switch (format.type) {
    case sampleType::int16:
    case sampleType::int32:
    case sampleType::float32:
        break;
    default:
        format.type = sampleType::float32;
    }
    format.layout = fullWidth;
    return format;
}

bool sameShape(const SampleFormat& a, const SampleFormat& b) {
    return a.type == b.type && a.channels == b.channels && a.rate == b.rate;
}

/// Old records die away whatever they were doing, which keeps the recursion shallow when edits
/// follow each other quickly. `age` counts from 1 for the newest.
struct AgeRule {
    double scale = 1.0;
    bool forceLinear = false;

    static AgeRule forBothSides(int age) {
        if (age - 1 <= 6) return {};
        return {std::max(0.0, 1.0 - 0.2 * (age - 7)), true};
    }
    static AgeRule forOneSide(int age) {
        if (age - 1 <= 12) return {};
        return {std::max(0.0, 1.0 - 0.2 * (age - 13)), age - 1 > 16};
    }
};

} // namespace

void FaderStage::seek(int delta, const FxPos& pos) {
    nextInput = pos.whole;
    framesOut += delta;
}

void FaderStage::checkPlace(std::int64_t ringEnd) const {
    assert(framesOut == ringEnd);
    static_cast<void>(ringEnd);
}

bool FaderStage::onPlainPath() const {
    if (records.empty()) return true;
    const FadeRecord& last = records.newest();
    return framesOut >= last.spliceEnd && !last.silentAfter;
}

bool FaderStage::process(FxArena& sampleArena, FxBlock& out, FxRing& in, int maxFrames) {
    while (records.count() > keptRecords)
        records.pop();
    input = &in;
    if (onPlainPath()) {
        if (!records.empty()) nextInput = records.newest().newFrame(framesOut);
        if (maxFrames == 0) {
            markPosition(out, timeAtFrame(in, nextInput), nextInput);
            standing = true;
            return true;
        }
        if (!passBlock(sampleArena, out, in, converter, nextInput, cursor)) return false;
        framesOut += out.frames();
        return true;
    }

    const Mix mix = mixAt(framesOut, records.count() - 1, maxFrames);
    if (mix.frames == Mix::standing || maxFrames == 0) {
        markPosition(out, timeAtFrame(in, mix.inFrom), mix.inFrom);
        standing = true;
        return true;
    }
    if (mix.frames <= 0) return false;
    void* const samples = out.allocate(sampleArena, mix.window.format, mix.frames);
    std::memcpy(samples, mix.window.samples.get(),
                static_cast<std::size_t>(mix.frames) *
                    static_cast<std::size_t>(bytesPerFrame(mix.window.format)));
    out.timeStart = timeAtFrame(in, mix.inFrom);
    out.timeEnd = timeAtFrame(in, mix.inTo);
    out.srcStart = mix.inFrom << 16;
    out.srcEnd = mix.inTo << 16;
    framesOut += mix.frames;
    return true;
}

// -- Mixing ------------------------------------------------------------------------------------

/// What plays at output frame `p` as far as the records up to `k` know; never across a place where
/// one of them changes what it does.
FaderStage::Mix FaderStage::mixAt(std::int64_t p, int k, int frames) {
    if (k < 0) return inputFrames(p + baseOffset, frames);
    const FadeRecord& record = records.at(k);
    if (p >= record.spliceEnd) {
        if (!record.silentAfter) return inputFrames(record.newFrame(p), frames);
        Mix mix = silence(record.inputEnd(), frames);
        if (k == records.count() - 1) mix.frames = Mix::standing;
        return mix;
    }
    if (p < record.spliceStart) return mixBefore(record, p, k, frames);
    return mixInside(record, p, k, frames);
}

FaderStage::Mix FaderStage::mixBefore(const FadeRecord& record, std::int64_t p, int k, int frames) {
    frames = static_cast<int>(std::min<std::int64_t>(frames, record.spliceStart - p));
    const std::int64_t oldFrame = record.oldFrame(p);
    if (oldFrame >= record.oldHoldFrom) return silence(record.resume, frames);
    frames = static_cast<int>(std::min<std::int64_t>(frames, record.oldHoldFrom - oldFrame));
    return mixAt(oldFrame, k - 1, frames);
}

FaderStage::Mix FaderStage::mixInside(const FadeRecord& record, std::int64_t p, int k, int frames) {
    frames = static_cast<int>(std::min<std::int64_t>(frames, record.spliceEnd - p));
    if (!record.hasOld() && !record.hasNew()) return silence(record.resume, frames);

    Mix before;
    const std::int64_t oldFrame = record.oldFrame(p);
    const bool oldSounds = record.hasOld() && oldFrame < record.oldHoldFrom;
    if (oldSounds) {
        frames = static_cast<int>(std::min<std::int64_t>(frames, record.oldHoldFrom - oldFrame));
        before = mixAt(oldFrame, k - 1, frames);
        if (before.frames <= 0) return before;
        frames = before.frames;
    }
    Mix after;
    if (record.hasNew()) {
        after = inputFrames(record.newFrame(p), frames);
        if (after.frames <= 0) return after;
        frames = after.frames;
    }
    if (!oldSounds && !record.hasNew()) return silence(record.resume, frames);

    const bool both = oldSounds && record.hasNew();
    if (both && !sameShape(before.window.format, after.window.format)) return after;

    const int age = records.count() - k;
    const AgeRule rule =
        record.hasOld() && record.hasNew() ? AgeRule::forBothSides(age) : AgeRule::forOneSide(age);
    Mix& mix = record.hasNew() ? after : before;
    FadeRamp ramp;
    ramp.type = mix.window.format.type;
    ramp.channels = mix.window.format.channels;
    ramp.frames = frames;
    ramp.oldSide = oldSounds ? before.window.samples.get() : nullptr;
    ramp.newSide = record.hasNew() ? after.window.samples.get() : nullptr;
    ramp.out = mix.window.samples.get();
    ramp.first = p - record.spliceStart;
    ramp.length = record.spliceEnd - record.spliceStart;
    ramp.linear = record.linear || rule.forceLinear;
    ramp.scale = rule.scale;
    mixRamp(ramp);

    mix.inTo = mix.inFrom + (mix.inTo > mix.inFrom ? frames : 0);
    mix.frames = frames;
    return std::move(mix);
}

FaderStage::Mix FaderStage::silence(std::int64_t inputFrame, int frames) const {
    Mix mix;
    mix.frames = frames;
    mix.inFrom = mix.inTo = inputFrame;
    mix.window.frames = frames;
    mix.window.format = rampFormat(formatAtFrame(*input, input->end()));
    const std::size_t bytes = static_cast<std::size_t>(frames) *
                              static_cast<std::size_t>(bytesPerFrame(mix.window.format));
    mix.window.samples.reset(static_cast<std::byte*>(memAlloc(std::max<std::size_t>(bytes, 1))));
    std::memset(mix.window.samples.get(), 0, bytes);
    return mix;
}

/// Frames of the input ring, as many of one format as it holds from `frame` on.
FaderStage::Mix FaderStage::inputFrames(std::int64_t frame, int frames) {
    Mix mix;
    mix.inFrom = mix.inTo = frame;
    int index = indexAt(*input, frame);
    std::int64_t end = frame;
    if (index < input->count()) {
        const SampleFormat format = formatAtFrame(*input, frame);
        for (; index < input->count() && end < frame + frames; ++index) {
            const FxBlock& block = input->at(index);
            if (!block.empty() && !sameShape(block.format, format)) break;
            end = std::max(end, block.posEnd);
        }
    }
    mix.frames = static_cast<int>(std::min<std::int64_t>(end - frame, frames));
    if (mix.frames <= 0) return mix;
    mix.window =
        readWindow(*input, converter, rampFormat(formatAtFrame(*input, frame)), frame, mix.frames);
    mix.inTo = frame + mix.frames;
    return mix;
}

// -- What is still needed ----------------------------------------------------------------------

std::int64_t FaderStage::inputStartFor(int delta, const FxPos& pos) {
    if (records.empty()) return pos.whole - heldBack;
    return reach(framesOut + delta, records.count() - 1) - heldBack;
}

/// Oldest input frame that output from `p` on can still read, as far as the records up to `k` know.
std::int64_t FaderStage::reach(std::int64_t p, int k) const {
    if (k < 0) return p + baseOffset;
    const FadeRecord& record = records.at(k);
    if (p >= record.spliceEnd) return record.silentAfter ? record.inputEnd() : record.newFrame(p);

    std::int64_t oldest = record.resume;
    if (record.hasNew()) oldest = record.newFrame(std::max(p, record.spliceStart));
    if (p < record.spliceStart || record.hasOld())
        oldest = std::min(oldest, reach(record.oldFrame(p), k - 1));
    return oldest;
}

// -- Scheduling --------------------------------------------------------------------------------

FaderStage::InputPlace FaderStage::inputAt(std::int64_t p, int k) const {
    if (k < 0) return {p + baseOffset, false};
    const FadeRecord& record = records.at(k);
    if (p >= record.spliceEnd) {
        if (record.silentAfter) return {record.inputEnd(), true};
        return {record.newFrame(p), false};
    }
    if (p < record.spliceStart) return inputAt(record.oldFrame(p), k - 1);
    if (record.hasNew()) return {record.newFrame(p), false};
    if (record.hasOld()) return inputAt(record.oldFrame(p), k - 1);
    return {record.resume, true};
}

int FaderStage::rateAt(std::int64_t inputFrame) const {
    return formatAtFrame(*input, inputFrame).rate;
}

/// Frames of old audio that are still to come from output frame `outFrame` on, where `audioEnd` is
/// the input frame at which the old audio ends.
std::int64_t FaderStage::oldAudioLeft(std::int64_t outFrame, std::int64_t inputFrame,
                                      std::int64_t audioEnd) const {
    if (records.empty()) return audioEnd - inputFrame;
    // Counted on the newest record's own mapping: `outFrame` may lie before its splice, and then
    // the distance on the input axis would reach too far by the length of its jump.
    const FadeRecord& last = records.newest();
    const std::int64_t end =
        last.silentAfter ? last.spliceStart : audioEnd - last.inputEnd() + last.spliceEnd;
    return std::max<std::int64_t>(end - outFrame, 0);
}

FxTime FaderStage::schedule(FxTime from, FxTime at, int durationMs, bool out, int kind,
                            std::int64_t* actual, bool mayBeBehind, int spliceMs) {
    if (!input) return at;
    if (records.empty()) baseOffset = nextInput - framesOut;

    const std::int64_t cut = from < 0 ? framesOut : frameAtTime(*outRing, from);
    const int newest = records.count() - 1;
    const std::int64_t playing = inputAt(cut, newest).frame;
    std::int64_t joined = clock->timeToPosition(at);
    if (!mayBeBehind) joined = std::max(joined, playing);

    const int rate = rateAt(playing);
    const std::int64_t left = oldAudioLeft(cut, playing, joined);
    // What the stages behind hold ahead of their time stamps must not swallow the start of the
    // fade.
    const std::int64_t start = cut + (durationMs > 0 ? clock->lagBehind(*this) : 0);
    const std::int64_t audible = std::max<std::int64_t>(cut + left - start, 0);

    std::int64_t n = scaledRounded(durationMs, rate, 1000);
    // A fade never outlasts its audio: it would end in a cut. A file takes the remainder anyway.
    if (kind == 1 && clock->playsInRealTime()) n = std::min(n, audible);

    FadeRecord fade;
    fade.oldFrom = fade.spliceStart = start;
    fade.oldTo = fade.spliceEnd = start + n;
    fade.oldHoldFrom = fade.oldHoldTo = cut + left;
    fade.inFrom = fade.inTo = fade.resume = joined;
    fade.linear = out;
    if (kind == 0) {
        if (audible == 0) fade.oldTo = start;
        fade.oldHoldTo = fade.oldHoldFrom + n;
        fade.inTo = joined + n;
    }
    records.push(fade);
    if (kind == 1) {
        FadeRecord stop;
        const std::int64_t end = start + n;
        stop.oldFrom = stop.oldTo = stop.oldHoldFrom = stop.oldHoldTo = stop.spliceStart = end;
        stop.spliceEnd = end + std::max<std::int64_t>(std::int64_t{rate} * spliceMs / 1000, 1);
        stop.inFrom = stop.inTo = stop.resume = joined;
        stop.silentAfter = true;
        stop.linear = out;
        records.push(stop);
    }
    if (actual) *actual = n;
    return clock->positionToTime(joined);
}

} // namespace velorine
