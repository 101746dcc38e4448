#include "tests/pulse/Child.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>

namespace velorine::test {

Child::Child(const std::vector<std::string>& words, Output output) {
    std::vector<char*> arguments;
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    std::array<int, 2> ends{-1, -1};
    if (output == Output::piped && pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("pipe");
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    id = fork();
    if (id < 0) throw std::runtime_error("fork");
    if (id == 0) {
        dup2(nothing, STDIN_FILENO);
        dup2(output == Output::piped ? ends[1] : nothing, STDOUT_FILENO);
        dup2(nothing, STDERR_FILENO);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    close(nothing);
    if (ends[1] >= 0) close(ends[1]);
    outFd = ends[0];
}

Child::~Child() {
    if (id > 0) {
        send(SIGKILL);
        wait();
    }
    if (outFd >= 0) close(outFd);
}

void Child::send(int signal) const {
    if (id > 0) kill(id, signal);
}

int Child::wait() {
    int status = 0;
    waitpid(id, &status, 0);
    id = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool Child::hasEnded() const {
    siginfo_t info{};
    return id < 0 ||
           (waitid(P_PID, static_cast<id_t>(id), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
            info.si_pid == id);
}

std::string outputOf(const std::vector<std::string>& words) {
    Child child{words, Child::Output::piped};
    std::string text;
    std::array<char, 4096> bytes{};
    for (ssize_t got = 0; (got = read(child.outputFd(), bytes.data(), bytes.size())) > 0;)
        text.append(bytes.data(), static_cast<std::size_t>(got));
    if (child.wait() != 0) throw std::runtime_error(words[0] + " failed");
    return text;
}

} // namespace velorine::test
