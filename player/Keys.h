#pragma once

#include <memory>
#include <optional>

struct termios;

namespace velorine {

enum class Key { pause, back, forward, previous, next, softer, louder, quit };

/// Makes keys of the bytes that a terminal sends; what means nothing is passed over, a cursor key's
/// sequence as a whole.
class KeyDecoder {
public:
    std::optional<Key> feed(char byte);

private:
    enum class State { plain, escape, sequence };
    State state = State::plain;
};

/// The keyboard, where stdin is a terminal: keys come at once and aren't echoed. Leaves the
/// terminal alone while the program is in the background, takes it again when it comes back, and
/// gives it back as it was. One at a time; one thread.
class Keyboard {
public:
    Keyboard();
    ~Keyboard();
    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;

    /// Waits up to `ms` for a key; without a keyboard, or after a signal, for nothing.
    std::optional<Key> wait(int ms);

private:
    bool listens();

    bool isThere;                    ///< stdin is a terminal
    bool isTaken = false;            ///< its modes are ours
    std::unique_ptr<termios> before; ///< its modes as they were found
    KeyDecoder decoder;
};

} // namespace velorine
