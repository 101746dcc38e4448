#include "player/Interruption.h"

#include <csignal>

#include <atomic>

namespace velorine::interruption {

namespace {

std::atomic<bool> noted{false};
static_assert(std::atomic<bool>::is_always_lock_free);

void note(int) {
    noted.store(true, std::memory_order_relaxed);
}

} // namespace

void watch() {
    struct sigaction action {};
    action.sa_handler = note;
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signal, &action, nullptr);
}

bool requested() noexcept {
    return noted.load(std::memory_order_relaxed);
}

} // namespace velorine::interruption
