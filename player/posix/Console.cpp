#include "player/Console.h"

#include "player/Text.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace velorine {

namespace {

constexpr const char* eraseLine = "\r\033[K";

bool wantsColour() {
    const char* const none = std::getenv("NO_COLOR");
    const char* const kind = std::getenv("TERM");
    return !(none && *none) && kind && *kind && std::strcmp(kind, "dumb") != 0;
}

/// Past stdio, whose stderr is kept quiet while libraries decode.
void put(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

} // namespace

Console::Console() : terminal(isatty(STDERR_FILENO) == 1), colour(terminal && wantsColour()) {
    ErrorSink::install(this);
}

Console::~Console() {
    ErrorSink::install(nullptr);
    clearLive();
}

void Console::say(std::string_view text) {
    const std::scoped_lock guard{lock};
    const std::string line = "velorine: " + printable(text) + "\n";
    put(live.empty() ? line : eraseLine + line + live);
}

void Console::say(std::string_view file, std::string_view text) {
    say(std::string{file} + ": " + std::string{text});
}

void Console::showLive(std::string_view text) {
    if (!terminal) return;
    const std::scoped_lock guard{lock};
    if (live == text) return;
    live = text;
    put(eraseLine + live);
}

void Console::clearLive() {
    const std::scoped_lock guard{lock};
    if (live.empty()) return;
    live.clear();
    put(eraseLine);
}

int Console::columns() const {
    winsize size{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 80;
    return size.ws_col;
}

void Console::show(const char* text) {
    std::string_view line{text};
    while (!line.empty() && line.back() == '\n')
        line.remove_suffix(1);
    say(line);
}

} // namespace velorine
