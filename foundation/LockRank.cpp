#include "foundation/LockRank.h"

#ifndef NDEBUG

#include <array>
#include <cstdio>
#include <cstdlib>

namespace velorine {

namespace {
thread_local std::array<int, 32> held{}; // number of locks of each rank
}

void noteLockTaken(LockRank rank) noexcept {
    const auto own = static_cast<std::size_t>(rank);
    for (std::size_t i = own; i < held.size(); ++i) {
        if (held[i] == 0) continue;
        std::fprintf(stderr, "lock of rank %zu taken while one of rank %zu is held\n", own, i);
        std::abort();
    }
    ++held[own];
}

void noteLockGiven(LockRank rank) noexcept {
    --held[static_cast<std::size_t>(rank)];
}

} // namespace velorine

#endif
