#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

struct Cost {
    double cpuMs = 0; ///< user and system
    long peakKb = 0;  ///< of memory in use
};

double ms(const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1000 + static_cast<double>(time.tv_usec) / 1000;
}

/// Runs `command` to its end. Ends the program if that fails.
Cost run(char** command) {
    const pid_t child = fork();
    if (child == 0) {
        execvp(command[0], command);
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    if (child < 0 || wait4(child, &status, 0, &usage) != child || status != 0) {
        std::fprintf(stderr, "%s failed\n", command[0]);
        std::exit(1);
    }
    return {ms(usage.ru_utime) + ms(usage.ru_stime), usage.ru_maxrss};
}

} // namespace

/// run_cost RUNS COMMAND...: CPU time in ms, median of the runs, and the most memory in KiB that
/// any of them had in use.
int main(int argc, char** argv) {
    const int runs = argc > 2 ? std::atoi(argv[1]) : 0;
    if (runs < 1) {
        std::fprintf(stderr, "usage: run_cost RUNS COMMAND...\n");
        return 2;
    }
    std::vector<double> cpu;
    long peak = 0;
    for (int i = 0; i < runs; ++i) {
        const Cost cost = run(argv + 2);
        cpu.push_back(cost.cpuMs);
        peak = std::max(peak, cost.peakKb);
    }
    std::nth_element(cpu.begin(), cpu.begin() + runs / 2, cpu.end());
    std::printf("%.1f %ld\n", cpu[static_cast<std::size_t>(runs / 2)], peak);
}
