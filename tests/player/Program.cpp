#include "tests/player/Program.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace velorine::test {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto patience = std::chrono::seconds{60};

void check(bool done, const char* what) {
    if (!done) throw std::runtime_error(what);
}

[[noreturn]] void becomeProgram(const std::vector<std::string>& arguments,
                                const Program::Environment& environment) {
    // No sound server: what plays here plays to nobody.
    std::vector<std::string> variables{"TERM=xterm", "PULSE_SERVER=unix:/nowhere"};
    for (const auto& [name, value] : environment)
        variables.push_back(name + "=" + value);
    for (const char* const sanitizer : {"ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS"})
        if (const char* const options = std::getenv(sanitizer))
            variables.push_back(std::string{sanitizer} + "=" + options);
    std::vector<std::string> words{VELORINE_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    const auto pointers = [](std::vector<std::string>& texts) {
        std::vector<char*> list;
        for (std::string& text : texts)
            list.push_back(text.data());
        list.push_back(nullptr);
        return list;
    };
    execve(VELORINE_PROGRAM, pointers(words).data(), pointers(variables).data());
    _exit(127);
}

} // namespace

std::vector<std::string> Finished::errLines() const {
    std::vector<std::string> lines;
    std::istringstream stream{err};
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

Program::Program(const std::vector<std::string>& arguments, const Environment& environment) {
    std::array<int, 2> outPipe{};
    std::array<int, 2> errPipe{};
    check(pipe2(outPipe.data(), O_CLOEXEC) == 0 && pipe2(errPipe.data(), O_CLOEXEC) == 0, "pipe");
    child = fork();
    check(child >= 0, "fork");
    if (child == 0) {
        const int nothing = open("/dev/null", O_RDONLY);
        dup2(nothing, STDIN_FILENO);
        dup2(outPipe[1], STDOUT_FILENO);
        dup2(errPipe[1], STDERR_FILENO);
        becomeProgram(arguments, environment);
    }
    close(outPipe[1]);
    close(errPipe[1]);
    outFd = outPipe[0];
    errFd = errPipe[0];
}

Program Program::onTerminal(const std::vector<std::string>& arguments,
                            const Environment& environment, int columns) {
    Program program;
    winsize size{};
    size.ws_row = 24;
    size.ws_col = static_cast<unsigned short>(columns);
    std::array<char, 256> name{};
    check(openpty(&program.terminal, &program.farEnd, name.data(), nullptr, &size) == 0, "openpty");
    program.child = fork();
    check(program.child >= 0, "fork");
    if (program.child == 0) {
        close(program.terminal);
        login_tty(program.farEnd);
        becomeProgram(arguments, environment);
    }
    program.outFd = program.terminal;
    return program;
}

Program::~Program() {
    if (child > 0) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    for (const int descriptor : {outFd, errFd, farEnd})
        if (descriptor >= 0) close(descriptor);
}

Program::Program(Program&& other) noexcept
    : child(std::exchange(other.child, -1)), outFd(std::exchange(other.outFd, -1)),
      errFd(std::exchange(other.errFd, -1)), terminal(std::exchange(other.terminal, -1)),
      farEnd(std::exchange(other.farEnd, -1)), out(std::move(other.out)),
      err(std::move(other.err)) {}

void Program::send(int signal) const {
    kill(child, signal);
}

void Program::type(const std::string& keys) const {
    check(write(terminal, keys.data(), keys.size()) == static_cast<ssize_t>(keys.size()), "write");
}

/// @return false when there is nothing more to come, or the time is up
bool Program::readSome(Clock::time_point deadline) {
    std::array<pollfd, 2> ready{pollfd{outFd, POLLIN, 0}, pollfd{errFd, POLLIN, 0}};
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return false;
    // A terminal stays open here, so that its end alone tells nothing: look for the child's, too.
    if (poll(ready.data(), ready.size(), terminal >= 0 ? 20 : static_cast<int>(left)) <= 0) {
        siginfo_t ended{};
        const bool gone =
            terminal >= 0 &&
            waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
            ended.si_pid == child;
        return !gone;
    }
    std::array<char, 4096> bytes{};
    const auto take = [&bytes](int& descriptor, const pollfd& state, std::string& text) {
        if (state.revents == 0) return;
        const ssize_t got = read(descriptor, bytes.data(), bytes.size());
        if (got > 0) {
            text.append(bytes.data(), static_cast<std::size_t>(got));
        } else {
            close(descriptor);
            descriptor = -1;
        }
    };
    take(outFd, ready[0], out);
    take(errFd, ready[1], err);
    return outFd >= 0 || errFd >= 0;
}

bool Program::awaitOutput(const std::string& text) {
    const auto deadline = Clock::now() + patience;
    while (out.find(text) == std::string::npos)
        if (!readSome(deadline)) return out.find(text) != std::string::npos;
    return true;
}

bool Program::terminalIsPlain() const {
    termios modes{};
    check(tcgetattr(farEnd, &modes) == 0, "tcgetattr");
    return (modes.c_lflag & ICANON) != 0 && (modes.c_lflag & ECHO) != 0;
}

void Program::makeTerminalPlain() const {
    termios modes{};
    check(tcgetattr(farEnd, &modes) == 0, "tcgetattr");
    modes.c_lflag |= ICANON | ECHO;
    check(tcsetattr(farEnd, TCSANOW, &modes) == 0, "tcsetattr");
}

Finished Program::finish() {
    const auto deadline = Clock::now() + patience;
    while (readSome(deadline)) {
    }
    if (Clock::now() >= deadline) kill(child, SIGKILL);
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    child = -1;
    Finished finished;
    finished.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    finished.out = out;
    finished.err = err;
    finished.peakKb = usage.ru_maxrss;
    return finished;
}

Finished run(const std::vector<std::string>& arguments, const Program::Environment& environment) {
    return Program{arguments, environment}.finish();
}

Finished renderPlain(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "render");
    for (const char* setting : {"Output/bits=1", "Eq/enable=0"})
        arguments.insert(arguments.end(), {"--set", setting});
    return run(arguments);
}

} // namespace velorine::test
