#pragma once

#include "foundation/Kernel.h"

namespace velorine {

inline constexpr int priorityIdle = -15;
inline constexpr int priorityNormal = 0;
inline constexpr int priorityHighest = 2;
inline constexpr int priorityTimeCritical = 15;

/// Gives the calling thread another priority and puts the old one back at its end.
class PriorityScope {
public:
    explicit PriorityScope(int priority) : saved(kernel().currentPriority()) {
        if (priority != saved) kernel().setCurrentPriority(priority);
    }
    ~PriorityScope() { giveBack(); }
    PriorityScope(const PriorityScope&) = delete;
    PriorityScope& operator=(const PriorityScope&) = delete;

    /// The caller's priority, raised to `lowest` if it is below that.
    static int atLeast(int lowest) {
        const int own = kernel().currentPriority();
        return own < lowest ? lowest : own;
    }

    void giveBack() {
        if (kernel().currentPriority() != saved) kernel().setCurrentPriority(saved);
    }

private:
    const int saved;
};

} // namespace velorine
