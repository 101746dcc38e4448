#pragma once

namespace velorine {

/// Where a text for the user goes. Texts come from any thread, the audio thread included, and the
/// call returns when the user has seen it.
class ErrorSink {
public:
    virtual ~ErrorSink() = default;
    virtual void show(const char* text) = 0;

    /// A message box with the caption "Error" on Windows, a line on stderr elsewhere.
    static ErrorSink& native();

    /// Puts `replacement` in the place of the native sink; null puts that back.
    static void install(ErrorSink* replacement) noexcept;
};

/// Warns the user and goes on. Of a text of more than 1500 bytes the first 1499 are shown.
[[gnu::format(printf, 1, 2)]] void errorBox(const char* format, ...);

/// Throws `text`, as a `const char*`. The entry points catch it, show it and end the process.
[[noreturn]] void fatal(const char* text);

/// Shows `text` through the error sink and ends the process with exit code 1.
[[noreturn]] void endWith(const char* text) noexcept;

} // namespace velorine
