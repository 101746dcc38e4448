#pragma once

#include "foundation/Kernel.h"

#include <functional>
#include <utility>

namespace velorine::test {

/// A thread made straight through the kernel. It stands still until `resume`, which has to come
/// before the end of its scope, where it is waited for.
class RawThread {
public:
    explicit RawThread(std::function<void()> work)
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
    static std::uint32_t enter(void* self) {
        static_cast<RawThread*>(self)->body();
        return 0;
    }

    const std::function<void()> body;
    const Kernel::Handle thread;
};

/// The same, running from the start.
class RunningThread : public RawThread {
public:
    explicit RunningThread(std::function<void()> work) : RawThread(std::move(work)) { resume(); }
};

} // namespace velorine::test
