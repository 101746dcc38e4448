#include "chain/FxStage.h"

namespace velorine {

void FxStage::markPosition(FxBlock& out, FxTime time, std::int64_t inputFrame) {
    out.clear();
    out.format = SampleFormat{};
    out.timeStart = out.timeEnd = time;
    out.srcStart = out.srcEnd = inputFrame << 16;
}

} // namespace velorine
