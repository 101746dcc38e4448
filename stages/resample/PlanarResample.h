#pragma once

#include "foundation/FxPos.h"
#include "stages/resample/ResampleFilter.h"
#include "stages/resample/ResampleKernels.h"

#include <cstdint>

namespace velorine {

/// The resampler's loop in the vectors that `Lanes` names: the polynomials are taken at their
/// fraction tap by tap, once for both channels, and then summed. Two output frames at a time. Each
/// file that is built for other instructions has a `Lanes` of its own, so that no function exists
/// in two forms.
///
/// `Lanes`: a `Number`, `count` of them in a `Vector`; `separate`, which takes `count` frames
/// apart; `load`, `splat`, `plusTimes` (a + b c), and `finish`, which adds up the four vectors'
/// lanes, times `gain`, clamped and rounded, to four integers.
template <typename Lanes>
class PlanarResample {
    using Number = typename Lanes::Number;
    using Vector = typename Lanes::Vector;

public:
    static void run(const ResampleRun& run) {
        const ResampleFilter& filter = *run.filter;
        const int span = run.windowFrames / 16 * 16 + 16;
        auto* const left = static_cast<Number*>(run.scratch);
        auto* const right = left + span;
        int done = 0;
        for (; done + Lanes::count <= run.windowFrames; done += Lanes::count)
            Lanes::separate(run.window + 2 * done, left + done, right + done);
        for (int i = done; i < run.windowFrames; ++i) {
            left[i] = static_cast<Number>(run.window[2 * i]);
            right[i] = static_cast<Number>(run.window[2 * i + 1]);
        }
        // The last group of taps may reach past the window. Its terms are 0 there, but 0 times
        // what old memory holds needn't be.
        for (int i = run.windowFrames; i < span; ++i)
            left[i] = right[i] = 0;

        std::uint64_t fraction = run.position.frac;
        std::int64_t whole = run.firstTap;
        const auto nextFrame = [&] {
            const auto share = static_cast<double>(static_cast<std::int64_t>(fraction >> 11));
            const double u = (1.0 - share * 0x1p-53) * filter.tableRows;
            const int row = static_cast<int>(u);
            const Frame frame{rowOf(filter, row), left + whole, right + whole,
                              static_cast<Number>(u - row)};
            const std::uint64_t next = fraction + run.step.frac;
            whole += run.step.whole + (next < fraction ? 1 : 0);
            fraction = next;
            return frame;
        };
        int i = 0;
        for (; i + 2 <= run.frames; i += 2) {
            const Frame first = nextFrame();
            const Frame second = nextFrame();
            sumTaps(first, second, filter, run.gain, run.to + 2 * i);
        }
        if (i == run.frames) return;
        const Frame last = nextFrame();
        std::int32_t pairs[4];
        sumTaps(last, last, filter, run.gain, pairs);
        run.to[2 * i] = pairs[0];
        run.to[2 * i + 1] = pairs[1];
    }

private:
    static const Number* rowOf(const ResampleFilter& filter, int row) {
        if constexpr (sizeof(Number) == sizeof(float))
            return filter.rowFloat(row);
        else
            return filter.row(row);
    }

    /// Where the taps of an output frame lie.
    struct Frame {
        const Number* row;
        const Number* left;
        const Number* right;
        Number fraction; ///< at which the row's polynomials are taken
    };

    /// Two frames side by side, for the processor to do at once.
    static inline void sumTaps(const Frame& first, const Frame& second,
                               const ResampleFilter& filter, double gain, std::int32_t* to) {
        const Vector firstFraction = Lanes::splat(first.fraction);
        const Vector secondFraction = Lanes::splat(second.fraction);
        Vector sums[4] = {Lanes::splat(0), Lanes::splat(0), Lanes::splat(0), Lanes::splat(0)};
        for (int j = 0; j < filter.rowStride; j += Lanes::count) {
            const int place = ResampleFilter::place(0, j);
            const Vector a = tapsAt(first.row + place, firstFraction);
            const Vector b = tapsAt(second.row + place, secondFraction);
            sums[0] = Lanes::plusTimes(sums[0], a, Lanes::load(first.left + j));
            sums[1] = Lanes::plusTimes(sums[1], a, Lanes::load(first.right + j));
            sums[2] = Lanes::plusTimes(sums[2], b, Lanes::load(second.left + j));
            sums[3] = Lanes::plusTimes(sums[3], b, Lanes::load(second.right + j));
        }
        Lanes::finish(sums, gain, to);
    }

    static inline Vector tapsAt(const Number* terms, const Vector& t) {
        constexpr int group = ResampleFilter::group;
        const Vector cubic = Lanes::load(terms);
        const Vector square = Lanes::plusTimes(Lanes::load(terms + group), cubic, t);
        const Vector slope = Lanes::plusTimes(Lanes::load(terms + 2 * group), square, t);
        return Lanes::plusTimes(Lanes::load(terms + 3 * group), slope, t);
    }
};

} // namespace velorine
