#include "foundation/Kernel.h"

#include "foundation/Thread.h"

#include <atomic>

namespace velorine {

namespace {
std::atomic<Kernel*> installed{nullptr};
}

void Kernel::install(Kernel* replacement) noexcept {
    Thread::forgetRegistry();
    installed.store(replacement, std::memory_order_release);
}

Kernel& kernel() noexcept {
    Kernel* replacement = installed.load(std::memory_order_acquire);
    return replacement ? *replacement : Kernel::native();
}

} // namespace velorine
