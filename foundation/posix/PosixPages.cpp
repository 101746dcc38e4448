#include "foundation/LockedPages.h"

#include <sys/mman.h>

namespace velorine {

PageSource::Run PageSource::map(std::size_t bytes) {
    void* const first =
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (first == MAP_FAILED) return {};
    return {static_cast<std::byte*>(first), bytes, mlock(first, bytes) == 0};
}

void PageSource::unmap(const Run& run) noexcept {
    munmap(run.first, run.bytes);
}

void reserveWorkingSet(std::size_t, std::size_t) {
    // The limit on locked memory is the administrator's here; pages work unpinned too.
}

} // namespace velorine
