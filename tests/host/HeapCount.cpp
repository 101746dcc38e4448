#include "tests/host/HeapCount.h"

#include <atomic>
#include <cstddef>

namespace velorine::test {

namespace {
std::atomic<long> counted{0};
thread_local bool leftOut = false;
} // namespace

bool HeapCount::works() {
    return VELORINE_COUNTS_HEAP != 0;
}

void HeapCount::leaveOutCaller() {
    leftOut = true;
}

long HeapCount::calls() {
    return counted.load();
}

#if VELORINE_COUNTS_HEAP
namespace {
void count() {
    if (!leftOut) counted.fetch_add(1, std::memory_order_relaxed);
}
} // namespace
#endif

} // namespace velorine::test

#if VELORINE_COUNTS_HEAP
// The C library lets a program put its own in the place of these; `new` comes here, too.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier)
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);
void* __libc_memalign(std::size_t alignment, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier)

[[gnu::visibility("default")]] void* malloc(std::size_t size) {
    velorine::test::count();
    return __libc_malloc(size);
}
[[gnu::visibility("default")]] void* calloc(std::size_t count, std::size_t size) {
    velorine::test::count();
    return __libc_calloc(count, size);
}
[[gnu::visibility("default")]] void* realloc(void* block, std::size_t size) {
    velorine::test::count();
    return __libc_realloc(block, size);
}
[[gnu::visibility("default")]] void* aligned_alloc(std::size_t alignment, std::size_t size) {
    velorine::test::count();
    return __libc_memalign(alignment, size);
}
[[gnu::visibility("default")]] void free(void* block) {
    if (block) velorine::test::count();
    __libc_free(block);
}
}
#endif
