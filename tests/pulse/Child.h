#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace velorine::test {

/// A program that runs beside the test, in its environment; killed at the end.
class Child {
public:
    enum class Output { dropped, piped };

    /// @param words  the program and its arguments
    Child(const std::vector<std::string>& words, Output output);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    void send(int signal) const;

    /// Waits for its end. @return its exit code; 128 and the signal's number if one ended it
    int wait();
    bool hasEnded() const; ///< without waiting

    int outputFd() const noexcept { return outFd; } ///< reading end of a piped standard output

private:
    pid_t id = -1;
    int outFd = -1;
};

/// Runs a program to its end. @return what it wrote to its standard output
/// @throws std::runtime_error when it fails
std::string outputOf(const std::vector<std::string>& words);

} // namespace velorine::test
