#include "foundation/ErrorReport.h"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace velorine {

namespace {
std::atomic<ErrorSink*> installed{nullptr};

ErrorSink& sink() {
    ErrorSink* const replacement = installed.load(std::memory_order_acquire);
    return replacement ? *replacement : ErrorSink::native();
}
} // namespace

void ErrorSink::install(ErrorSink* replacement) noexcept {
    installed.store(replacement, std::memory_order_release);
}

void errorBox(const char* format, ...) {
    constexpr int limit = 1500;
    std::array<char, limit + 2> text{};
    va_list arguments;
    va_start(arguments, format);
    int length = std::vsnprintf(text.data(), limit + 1, format, arguments);
    va_end(arguments);
    if (length < 0 || length > limit) length = limit - 1;
    text[static_cast<std::size_t>(length)] = '\n';
    text[static_cast<std::size_t>(length) + 1] = '\0';
    sink().show(text.data());
}

void fatal(const char* text) {
    throw text; // NOLINT(misc-throw-by-value-catch-by-reference): a text, not an object
}

void endWith(const char* text) noexcept {
    sink().show(text);
    std::exit(1);
}

} // namespace velorine
