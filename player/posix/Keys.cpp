#include "player/Keys.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <csignal>

namespace velorine {

namespace {

std::optional<Key> plainKey(char byte) {
    switch (byte) {
    case ' ':
        return Key::pause;
    case 'n':
    case 'N':
        return Key::next;
    case 'p':
    case 'P':
        return Key::previous;
    case '+':
    case '=':
        return Key::louder;
    case '-':
    case '_':
        return Key::softer;
    case 'q':
    case 'Q':
        return Key::quit;
    default:
        return std::nullopt;
    }
}

bool endsSequence(char byte) {
    return byte >= 0x40 && byte <= 0x7E;
}

std::atomic<bool> wasStopped{false}; ///< by job control, and continued

/// In the background a touch of the terminal would stop the program, and with it the music.
bool inForeground() {
    return tcgetpgrp(STDIN_FILENO) == getpgrp();
}

} // namespace

std::optional<Key> KeyDecoder::feed(char byte) {
    constexpr char escape = 27;
    switch (state) {
    case State::plain:
        if (byte != escape) return plainKey(byte);
        state = State::escape;
        return std::nullopt;
    case State::escape:
        if (byte == '[' || byte == 'O') {
            state = State::sequence;
            return std::nullopt;
        }
        state = byte == escape ? State::escape : State::plain;
        return byte == escape ? std::nullopt
                              : plainKey(byte); // the escape key itself means nothing
    case State::sequence:
        if (!endsSequence(byte)) return std::nullopt;
        state = State::plain;
        if (byte == 'C') return Key::forward;
        if (byte == 'D') return Key::back;
        return std::nullopt;
    }
    return std::nullopt;
}

// -- The terminal ------------------------------------------------------------------------------

Keyboard::Keyboard() : isThere(isatty(STDIN_FILENO) == 1), before(std::make_unique<termios>()) {
    if (!isThere || tcgetattr(STDIN_FILENO, before.get()) != 0) return;
    struct sigaction action {};
    action.sa_handler = [](int) { wasStopped.store(true, std::memory_order_relaxed); };
    action.sa_flags = SA_RESTART;
    sigaction(SIGCONT, &action, nullptr);
}

Keyboard::~Keyboard() {
    if (isTaken && inForeground()) tcsetattr(STDIN_FILENO, TCSANOW, before.get());
}

/// Whether keys are for us; has the terminal's modes right if so.
bool Keyboard::listens() {
    if (!isThere || !inForeground()) return isTaken = false;
    if (wasStopped.exchange(false, std::memory_order_relaxed)) isTaken = false; // the shell had it
    if (isTaken) return true;
    termios modes = *before;
    modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    modes.c_cc[VMIN] = 0;
    modes.c_cc[VTIME] = 0;
    return isTaken = tcsetattr(STDIN_FILENO, TCSANOW, &modes) == 0;
}

std::optional<Key> Keyboard::wait(int ms) {
    pollfd ready{STDIN_FILENO, POLLIN, 0};
    if (poll(&ready, listens() ? 1 : 0, ms) <= 0) return std::nullopt;
    char byte = 0;
    if (read(STDIN_FILENO, &byte, 1) != 1) {
        isThere = false; // hung up
        return std::nullopt;
    }
    return decoder.feed(byte);
}

} // namespace velorine
