#pragma once

#include "foundation/FxRing.h"
#include "stages/convert/SampleConverter.h"

#include <cstdint>

namespace velorine {

/// Longest silent block that stands for a stretch that the ring doesn't hold.
inline constexpr int maxGapFrames = 576;

/// Hands on the block at a reader's frame without touching its samples: a block entered at its
/// first frame whole, one entered inside from there on. A stretch that the ring doesn't hold
/// becomes silence, at most 576 frames at a time. A block without frames is handed on once.
///
/// `srcStart` and `srcEnd` become the frames of `in` that `out` covers.
///
/// @param nextFrame  frame of `in` that is read next; moves to the end of what is handed on
/// @param cursor     absolute number of the block that is read next
/// @return false when the ring holds nothing at or behind `nextFrame`
bool passBlock(FxArena& arena, FxBlock& out, const FxRing& in, SampleConverterHandle& converter,
               std::int64_t& nextFrame, std::int32_t& cursor);

/// `block` from its frame `frame` on, sharing the samples, as `passBlock` hands it on.
FxBlock blockFrom(const FxBlock& block, std::int64_t frame);

} // namespace velorine
