#pragma once

#include "foundation/Kernel.h"

#include <span>

namespace velorine {

/// An event of the kernel. Owns its handle; stays where it is made.
class Event {
public:
    enum class Reset { automatic, manual };

    explicit Event(Reset reset) : handle(kernel().createEvent(reset == Reset::manual)) {}
    ~Event() { kernel().close(handle); }
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    void set() { kernel().setEvent(handle); }
    void reset() { kernel().resetEvent(handle); }

    /// @param timeoutMs  0 or above, or `Kernel::forever`
    /// @return false when the time ran out
    bool wait(int timeoutMs = Kernel::forever) {
        return kernel().waitAny({&handle, 1}, timeoutMs) == 0;
    }

    Kernel::Handle native() const noexcept { return handle; }

private:
    const Kernel::Handle handle;
};

/// A counted semaphore of the kernel, at 0 when made.
class Semaphore {
public:
    Semaphore() : handle(kernel().createSemaphore()) {}
    ~Semaphore() { kernel().close(handle); }
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    void release(int count) { kernel().releaseSemaphore(handle, count); }
    void wait() { kernel().waitAny({&handle, 1}, Kernel::forever); }

private:
    const Kernel::Handle handle;
};

} // namespace velorine
