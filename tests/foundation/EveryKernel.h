#pragma once

#include "foundation/Kernel.h"
#include "tests/support/TestClock.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
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

/// A thread made straight through the kernel. It stands still until `resume`, and has to be resumed
/// before the scope ends.
class RawThread {
public:
    explicit RawThread(std::function<std::uint32_t()> work)
        : body(std::move(work)), thread(kernel().createThread(enter, this)) {}
    ~RawThread() {
        wait();
        kernel().close(thread);
    }
    RawThread(const RawThread&) = delete;
    RawThread& operator=(const RawThread&) = delete;

    void resume() { kernel().resumeThread(thread); }
    bool wait(int timeoutMs = Kernel::forever) {
        return kernel().waitAny({&thread, 1}, timeoutMs) == 0;
    }
    Kernel::Handle native() const { return thread; }

private:
    static std::uint32_t enter(void* self) { return static_cast<RawThread*>(self)->body(); }

    const std::function<std::uint32_t()> body;
    const Kernel::Handle thread;
};

} // namespace velorine::test
