#include "kestrix/OverlapAdder.h"

namespace velorine {

void OverlapAdder::reset(const FrameSizes& sizes) {
    hop = sizes.hop();
    for (AlignedArray<Complex>* const buffer : {&current, &following}) {
        if (buffer->count() == sizes.fftLen)
            buffer->clear();
        else
            buffer->resize(sizes.fftLen);
    }
}

const Complex* OverlapAdder::advance(const KestrixKernels& kernels) {
    kernels.addTo(reinterpret_cast<const float*>(current.data() + hop), 2 * (current.count() - hop),
                  reinterpret_cast<float*>(following.data()));
    current.swap(following);
    return current.data();
}

} // namespace velorine
