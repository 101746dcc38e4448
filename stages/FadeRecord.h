#pragma once

#include <cstdint>

namespace velorine {

/// Where the stream leaves what it was playing (the old side) and joins a new run of input frames
/// (the new side), on the fader's output axis. Between `spliceStart` and `spliceEnd` both are
/// mixed.
///
/// The axis of the older records is the same one: the old side goes on exactly as if this record
/// had not been made.
struct FadeRecord {
    /// What the old side plays during the splice; equal values: there is no old side.
    std::int64_t oldFrom = 0;
    std::int64_t oldTo = 0;

    /// Where the old side's own audio ends: from there on it is silent. Equal values: there is no
    /// new side, the old one only fades.
    std::int64_t oldHoldFrom = 0;
    std::int64_t oldHoldTo = 0;

    /// `inTo - inFrom` input frames of the new side have passed by the end of the splice.
    std::int64_t inFrom = 0;
    std::int64_t inTo = 0;

    std::int64_t spliceStart = 0;
    std::int64_t spliceEnd = 0;
    bool silentAfter = false; ///< behind the splice the stream stands until a further record
    std::int64_t resume = 0;  ///< input frame from which the new side is counted
    bool linear = false;      ///< gain law: linear, or of equal power

    bool hasOld() const noexcept { return oldFrom < oldTo; }
    bool hasNew() const noexcept { return oldHoldFrom != oldHoldTo; }

    /// Input frame of the new side at output frame `p`.
    std::int64_t newFrame(std::int64_t p) const noexcept { return p - spliceEnd + inputEnd(); }

    /// Input frame of the new side at the end of the splice.
    std::int64_t inputEnd() const noexcept { return resume + inTo - inFrom; }

    /// Frame on the axis of the older records at output frame `p`.
    std::int64_t oldFrame(std::int64_t p) const noexcept { return oldFrom + p - spliceStart; }
};

} // namespace velorine
