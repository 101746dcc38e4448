#pragma once

#include "tests/support/TestClock.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <string>

namespace velorine::test {

enum class KernelKind { native, serialClock, parallelClock };

/// One body of tests for every kernel there is: the machine's own and the clock's two modes.
class EveryKernel : public testing::TestWithParam<KernelKind> {
protected:
    EveryKernel() {
        if (GetParam() == KernelKind::serialClock) clock.emplace(TestClock::Mode::serial);
        if (GetParam() == KernelKind::parallelClock) clock.emplace(TestClock::Mode::parallel);
    }

    bool timeIsReal() const { return !clock; }

private:
    std::optional<TestClock> clock;
};

inline const auto everyKernel =
    testing::Values(KernelKind::native, KernelKind::serialClock, KernelKind::parallelClock);

inline std::string kernelName(const testing::TestParamInfo<KernelKind>& info) {
    constexpr std::array names{"Native", "SerialClock", "ParallelClock"};
    return names[static_cast<std::size_t>(info.param)];
}

} // namespace velorine::test
