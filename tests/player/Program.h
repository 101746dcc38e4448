#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace velorine::test {

/// How a run of the program ended.
struct Finished {
    int exitCode = -1; ///< 128 and the signal's number for one that a signal ended
    std::string out;
    std::string err; ///< on a terminal both come in `out`
    long peakKb = 0; ///< most memory in use

    std::vector<std::string> errLines() const;
};

/// The real program, run from outside in an environment of its own: no home, and so no settings, no
/// display, no sound server.
class Program {
public:
    using Environment = std::map<std::string, std::string>;

    /// Begins to run it, stdin closed.
    explicit Program(const std::vector<std::string>& arguments,
                     const Environment& environment = {});

    /// Begins to run it on a terminal of its own, of `columns` columns.
    static Program onTerminal(const std::vector<std::string>& arguments,
                              const Environment& environment = {}, int columns = 200);

    ~Program();
    Program(Program&& other) noexcept;
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    Program& operator=(Program&&) = delete;

    void send(int signal) const;
    void type(const std::string& keys) const; ///< on its terminal

    /// Waits until it has written `text`. @return false after a minute, or when it ended first
    bool awaitOutput(const std::string& text);

    /// Whether its terminal echoes and takes lines, as a shell expects it.
    bool terminalIsPlain() const;
    void makeTerminalPlain() const;

    /// Waits for its end; one that takes over a minute is killed.
    Finished finish();

    const std::string& output() const noexcept { return out; } ///< so far, of a terminal

private:
    Program() = default;
    bool readSome(std::chrono::steady_clock::time_point deadline);

    pid_t child = -1;
    int outFd = -1;
    int errFd = -1;
    int terminal = -1; ///< the near end
    int farEnd = -1;   ///< held open, so that its modes can be asked for
    std::string out, err;
};

/// Runs it to its end.
Finished run(const std::vector<std::string>& arguments,
             const Program::Environment& environment = {});

/// `velorine render` with nothing on the way that could touch a sample.
Finished renderPlain(std::vector<std::string> arguments);

} // namespace velorine::test
