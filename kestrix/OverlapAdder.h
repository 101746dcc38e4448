#pragma once

#include "foundation/AlignedArray.h"
#include "kestrix/FftPlan.h"
#include "kestrix/FrameSizes.h"
#include "kestrix/KestrixKernels.h"

namespace velorine {

/// Adds up the overlapping outputs of consecutive frames. Left and right are the real and imaginary
/// parts. Threads: the pump's.
class OverlapAdder {
public:
    /// Clears both buffers, for transforms of this length.
    void reset(const FrameSizes& sizes);

    /// Where the next frame's output goes, `fftLen` values.
    Complex* next() { return following.data(); }

    /// Adds what is left of the frames before to the one in `next`.
    /// @return the finished output, `hop` pairs; valid until the next call
    const Complex* advance(const KestrixKernels& kernels);

private:
    AlignedArray<Complex> current;
    AlignedArray<Complex> following;
    int hop = 0;
};

} // namespace velorine
