#include "foundation/LockedPages.h"

#include "foundation/ErrorReport.h"
#include "foundation/Memory.h"

#include <array>
#include <atomic>
#include <mutex>
#include <utility>

#ifndef VELORINE_KEEP_FREED_BLOCKS
#define VELORINE_KEEP_FREED_BLOCKS 1
#endif

namespace velorine {

namespace {

std::atomic<long> calls{0};

/// Runs that nobody uses at the moment.
class KeptRuns {
public:
    PageSource::Run take(std::size_t bytes) {
        const std::lock_guard guard{mutex};
        for (std::size_t i = 0; i < count; ++i) {
            if (runs[i].bytes != bytes) continue;
            const PageSource::Run found = runs[i];
            runs[i] = runs[--count];
            return found;
        }
        return {};
    }

    bool keep(const PageSource::Run& run) {
        constexpr std::size_t largest = std::size_t{1} << 20;
        const std::lock_guard guard{mutex};
        if (VELORINE_KEEP_FREED_BLOCKS == 0 || run.bytes > largest || count == runs.size())
            return false;
        runs[count++] = run;
        return true;
    }

private:
    std::mutex mutex; // a leaf, and held for a few instructions
    std::array<PageSource::Run, 16> runs{};
    std::size_t count = 0;
};

KeptRuns& keptRuns() {
    static KeptRuns* const runs = new KeptRuns; // outlives every static object
    return *runs;
}

constexpr std::size_t pageBytes = 4096;

} // namespace

LockedPages::LockedPages(std::size_t bytes) {
    if (bytes >= bigAllocation)
        errorBox("VMemAlloc : alloc size big (%d bytes)", static_cast<int>(bytes));
    bytes = (bytes + pageBytes - 1) / pageBytes * pageBytes;

    PageSource::Run taken = keptRuns().take(bytes);
    if (!taken.first) {
        calls.fetch_add(1, std::memory_order_relaxed);
        taken = PageSource::map(bytes);
    }
    if (!taken.first) fatal("VMemAlloc : VirtualAlloc() failed");
    run = {taken.first, taken.bytes};
    isPinned = taken.pinned;
}

LockedPages::LockedPages(LockedPages&& other) noexcept
    : run(std::exchange(other.run, {})), isPinned(std::exchange(other.isPinned, false)) {}

LockedPages& LockedPages::operator=(LockedPages&& other) noexcept {
    std::swap(run, other.run);
    std::swap(isPinned, other.isPinned);
    return *this;
}

LockedPages::~LockedPages() {
    if (run.empty()) return;
    const PageSource::Run owned{run.data(), run.size(), isPinned};
    if (keptRuns().keep(owned)) return;
    calls.fetch_add(1, std::memory_order_relaxed);
    PageSource::unmap(owned);
}

long LockedPages::systemCalls() noexcept {
    return calls.load(std::memory_order_relaxed);
}

} // namespace velorine
