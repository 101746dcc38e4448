#include "foundation/LockedPages.h"

#include "foundation/ErrorReport.h"
#include "foundation/Memory.h"

#include <algorithm>
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

/// Runs that nobody uses at the moment, the oldest first.
class KeptRuns {
public:
    PageSource::Run take(std::size_t bytes) {
        const std::lock_guard guard{mutex};
        for (std::size_t i = count; i-- > 0;)
            if (runs[i].bytes == bytes) return removeAt(i);
        return {};
    }

    /// Keeps `run`. What has to go instead comes back: the oldest one, so that sizes which aren't
    /// asked for any more don't stay, or `run` itself where it is too large.
    PageSource::Run keep(const PageSource::Run& run) {
        constexpr std::size_t largest = std::size_t{1} << 20;
        if (VELORINE_KEEP_FREED_BLOCKS == 0 || run.bytes > largest) return run;
        const std::lock_guard guard{mutex};
        const PageSource::Run oldest = count == runs.size() ? removeAt(0) : PageSource::Run{};
        runs[count++] = run;
        return oldest;
    }

private:
    PageSource::Run removeAt(std::size_t i) {
        const PageSource::Run removed = runs[i];
        std::copy(runs.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                  runs.begin() + static_cast<std::ptrdiff_t>(count),
                  runs.begin() + static_cast<std::ptrdiff_t>(i));
        --count;
        return removed;
    }

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
    const PageSource::Run dropped = keptRuns().keep({run.data(), run.size(), isPinned});
    if (!dropped.first) return;
    calls.fetch_add(1, std::memory_order_relaxed);
    PageSource::unmap(dropped);
}

long LockedPages::systemCalls() noexcept {
    return calls.load(std::memory_order_relaxed);
}

} // namespace velorine
