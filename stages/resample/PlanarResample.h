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
/// `Lanes`: a `Number`, `count` of them in a `Vector`; `load`, `loadHalf` (`count / 2` of them and
/// zeros; only where `count` is 8), `splat`, `times` (a b), `plusTimes` (a + b c), and `finish`,
/// which adds up the four vectors' lanes, times `gain`, clamped and rounded, to four integers.
template <typename Lanes>
class PlanarResample {
    using Number = typename Lanes::Number;
    using Vector = typename Lanes::Vector;

public:
    static void run(const ResampleRun& run) {
        const ResampleFilter& filter = *run.filter;
        const int span = (run.windowFrames + 15) & ~15;
        auto* const left = static_cast<Number*>(run.scratch);
        auto* const right = left + span;
        for (int i = 0; i < run.windowFrames; ++i) {
            left[i] = static_cast<Number>(run.window[2 * i]);
            right[i] = static_cast<Number>(run.window[2 * i + 1]);
        }

        std::uint64_t fraction = run.position.frac;
        std::int64_t whole = run.firstTap;
        const auto sumNext = [&](Vector& sumLeft, Vector& sumRight) {
            const double rest =
                1.0 - static_cast<double>(static_cast<std::int64_t>(fraction >> 11)) * 0x1p-53;
            const double u = rest * filter.tableRows;
            const int row = static_cast<int>(u);
            sumTaps(rowOf(filter, row), filter.rowStride, left + whole, right + whole,
                    static_cast<Number>(u - row), sumLeft, sumRight);
            const std::uint64_t next = fraction + run.step.frac;
            whole += run.step.whole + (next < fraction ? 1 : 0);
            fraction = next;
        };
        Vector sums[4];
        int i = 0;
        for (; i + 2 <= run.frames; i += 2) {
            sumNext(sums[0], sums[1]);
            sumNext(sums[2], sums[3]);
            Lanes::finish(sums, run.gain, run.to + 2 * i);
        }
        if (i == run.frames) return;
        sumNext(sums[0], sums[1]);
        sums[2] = sums[3] = sums[0];
        std::int32_t pair[4];
        Lanes::finish(sums, run.gain, pair);
        run.to[2 * i] = pair[0];
        run.to[2 * i + 1] = pair[1];
    }

private:
    static const Number* rowOf(const ResampleFilter& filter, int row) {
        if constexpr (sizeof(Number) == sizeof(float))
            return filter.rowFloat(row);
        else
            return filter.row(row);
    }

    static inline void sumTaps(const Number* row, int stride, const Number* left,
                               const Number* right, Number fraction, Vector& sumLeft,
                               Vector& sumRight) {
        const Vector t = Lanes::splat(fraction);
        Vector totalLeft = Lanes::splat(0);
        Vector totalRight = totalLeft;
        int j = 0;
        for (; j + Lanes::count <= stride; j += Lanes::count) {
            Vector tap = Lanes::load(row + j);
            tap = Lanes::plusTimes(Lanes::load(row + stride + j), tap, t);
            tap = Lanes::plusTimes(Lanes::load(row + 2 * stride + j), tap, t);
            tap = Lanes::plusTimes(Lanes::load(row + 3 * stride + j), tap, t);
            totalLeft = Lanes::plusTimes(totalLeft, tap, Lanes::load(left + j));
            totalRight = Lanes::plusTimes(totalRight, tap, Lanes::load(right + j));
        }
        if constexpr (Lanes::count == 8) {
            if (j < stride) {
                Vector tap = Lanes::loadHalf(row + j);
                tap = Lanes::plusTimes(Lanes::loadHalf(row + stride + j), tap, t);
                tap = Lanes::plusTimes(Lanes::loadHalf(row + 2 * stride + j), tap, t);
                tap = Lanes::plusTimes(Lanes::loadHalf(row + 3 * stride + j), tap, t);
                totalLeft = Lanes::plusTimes(totalLeft, tap, Lanes::loadHalf(left + j));
                totalRight = Lanes::plusTimes(totalRight, tap, Lanes::loadHalf(right + j));
            }
        }
        sumLeft = totalLeft;
        sumRight = totalRight;
    }
};

} // namespace velorine
