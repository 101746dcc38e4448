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

/// The keyboard, where stdin is a terminal that this program has to itself: keys come at once and
/// aren't echoed. Gives the terminal back as it was. One thread.
class Keyboard {
public:
    Keyboard();
    ~Keyboard();
    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;

    /// Waits up to `ms` for a key; without a keyboard, or after a signal, for nothing.
    std::optional<Key> wait(int ms);

private:
    bool inForeground() const;

    bool attached = false;
    std::unique_ptr<termios> before; ///< the terminal's modes as they were found
    KeyDecoder decoder;
};

} // namespace velorine
