#include "player/Keys.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

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

Keyboard::Keyboard() : before(std::make_unique<termios>()) {
    if (!isatty(STDIN_FILENO) || !inForeground() || tcgetattr(STDIN_FILENO, before.get()) != 0)
        return;
    termios modes = *before;
    modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    modes.c_cc[VMIN] = 0;
    modes.c_cc[VTIME] = 0;
    attached = tcsetattr(STDIN_FILENO, TCSANOW, &modes) == 0;
}

Keyboard::~Keyboard() {
    if (attached && inForeground()) tcsetattr(STDIN_FILENO, TCSANOW, before.get());
}

/// In the background a touch of the terminal would stop the program, and with it the music.
bool Keyboard::inForeground() const {
    return tcgetpgrp(STDIN_FILENO) == getpgrp();
}

std::optional<Key> Keyboard::wait(int ms) {
    pollfd stdinReady{STDIN_FILENO, POLLIN, 0};
    const bool listens = attached && inForeground();
    if (poll(&stdinReady, listens ? 1 : 0, ms) <= 0) return std::nullopt;
    char byte = 0;
    if (read(STDIN_FILENO, &byte, 1) != 1) {
        attached = false; // the terminal is gone
        return std::nullopt;
    }
    return decoder.feed(byte);
}

} // namespace velorine
