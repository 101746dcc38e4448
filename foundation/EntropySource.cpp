#include "foundation/EntropySource.h"

#include "foundation/CycleCounter.h"

#include <atomic>

namespace velorine {

namespace {
std::atomic<EntropySource*> installed{nullptr};
}

void EntropySource::install(EntropySource* replacement) noexcept {
    installed.store(replacement, std::memory_order_release);
}

std::uint32_t entropySeed() noexcept {
    EntropySource* const source = installed.load(std::memory_order_acquire);
    return source ? source->seed() : static_cast<std::uint32_t>(cycleCount());
}

} // namespace velorine
