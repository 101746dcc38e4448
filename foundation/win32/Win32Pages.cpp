#include "foundation/LockedPages.h"

#include <windows.h>

namespace velorine {

PageSource::Run PageSource::map(std::size_t bytes) {
    void* const reserved = VirtualAlloc(nullptr, bytes, MEM_RESERVE, PAGE_READWRITE);
    if (!reserved) return {};
    void* const first = VirtualAlloc(reserved, bytes, MEM_COMMIT, PAGE_READWRITE);
    if (!first) {
        VirtualFree(reserved, 0, MEM_RELEASE);
        return {};
    }
    const bool pinned = VirtualLock(first, bytes) != 0;
    MEMORY_BASIC_INFORMATION region{};
    VirtualQuery(first, &region, sizeof region);
    return {static_cast<std::byte*>(first), region.RegionSize, pinned};
}

void PageSource::unmap(const Run& run) noexcept {
    if (run.pinned) VirtualUnlock(run.first, run.bytes);
    VirtualFree(run.first, run.bytes, MEM_DECOMMIT);
    VirtualFree(run.first, 0, MEM_RELEASE);
}

void reserveWorkingSet(std::size_t minimumBytes, std::size_t maximumBytes) {
    SetProcessWorkingSetSize(GetCurrentProcess(), minimumBytes, maximumBytes);
}

} // namespace velorine
