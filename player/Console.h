#pragma once

#include "foundation/ErrorReport.h"

#include <mutex>
#include <string>
#include <string_view>

namespace velorine {

/// Where the program speaks to a person: stderr. What is said stands in whole lines; on a terminal
/// one live line, of the status or of progress, stays below them. Any thread.
///
/// While it lives, the engine's own warnings come through it, so that they don't run into the live
/// line.
class Console final : private ErrorSink {
public:
    Console();
    ~Console() override;
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// One line, "velorine: TEXT".
    void say(std::string_view text);

    /// One line about a file, "velorine: FILE: TEXT".
    void say(std::string_view file, std::string_view text);

    /// Puts `text` into the live line; nothing where there is no terminal.
    void showLive(std::string_view text);
    void clearLive();

    bool isTerminal() const noexcept { return terminal; }
    bool hasColour() const noexcept { return colour; }
    int columns() const; ///< of the terminal

private:
    void show(const char* text) override;

    const bool terminal;
    const bool colour; ///< a terminal that knows colours, and nobody asked for none
    std::mutex lock;
    std::string live; ///< guarded by lock: what stands in the live line
};

} // namespace velorine
