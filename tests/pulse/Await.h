#pragma once

#include <chrono>
#include <thread>

namespace velorine::test {

/// Looks at `done` every few ms until it is true, for half a minute at most. What other processes
/// do can't be waited for otherwise.
/// @return whether it came true
template <typename Condition>
bool comesTrue(Condition&& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{30};
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds{2});
    }
    return true;
}

} // namespace velorine::test
