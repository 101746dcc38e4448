#include "foundation/ErrorReport.h"
#include "foundation/Kernel.h"
#include "foundation/SignalTable.h"

#include <windows.h>

#include <mmsystem.h>
#include <process.h>

#include <array>
#include <cassert>
#include <climits>
#include <memory>

namespace velorine {

namespace {

HANDLE systemHandle(Kernel::Handle handle) {
    return reinterpret_cast<HANDLE>(handle);
}

Kernel::Handle wrapped(HANDLE handle) {
    return reinterpret_cast<Kernel::Handle>(handle);
}

struct ThreadStart {
    Kernel::ThreadEntry entry;
    void* context;
};

/// The system calls with a stack that is only 4-byte aligned.
unsigned __stdcall threadMain(void* raw) __attribute__((force_align_arg_pointer));

unsigned __stdcall threadMain(void* raw) {
    const std::unique_ptr<ThreadStart> start{static_cast<ThreadStart*>(raw)};
    const unsigned result = start->entry(start->context);
    return result;
}

/// Windows' own objects.
class Win32Kernel final : public Kernel {
public:
    Handle createEvent(bool manualReset) override {
        return wrapped(CreateEventA(nullptr, manualReset, FALSE, nullptr));
    }
    void setEvent(Handle event) override { SetEvent(systemHandle(event)); }
    void resetEvent(Handle event) override { ResetEvent(systemHandle(event)); }

    Handle createSemaphore() override {
        return wrapped(CreateSemaphoreA(nullptr, 0, INT_MAX, nullptr));
    }
    void releaseSemaphore(Handle semaphore, int count) override {
        ReleaseSemaphore(systemHandle(semaphore), count, nullptr);
    }

    int waitAny(std::span<const Handle> handles, int timeoutMs) override {
        std::array<HANDLE, SignalTable::maxHandles> natives{};
        assert(handles.size() <= natives.size());
        for (std::size_t i = 0; i < handles.size(); ++i)
            natives[i] = systemHandle(handles[i]);
        const DWORD result =
            WaitForMultipleObjects(static_cast<DWORD>(handles.size()), natives.data(), FALSE,
                                   timeoutMs < 0 ? INFINITE : static_cast<DWORD>(timeoutMs));
        if (result < WAIT_OBJECT_0 + handles.size())
            return static_cast<int>(result - WAIT_OBJECT_0);
        return timedOut;
    }

    void close(Handle handle) override { CloseHandle(systemHandle(handle)); }

    Handle createThread(ThreadEntry entry, void* context) override {
        auto start = std::make_unique<ThreadStart>(ThreadStart{entry, context});
        const std::uintptr_t thread =
            _beginthreadex(nullptr, 0, threadMain, start.get(), CREATE_SUSPENDED, nullptr);
        if (!thread)
            endWith("The system refuses another thread: end some programs and start again");
        start.release();
        return thread;
    }
    void disablePriorityBoost(Handle thread) override {
        SetThreadPriorityBoost(systemHandle(thread), TRUE);
    }
    void resumeThread(Handle thread) override { ResumeThread(systemHandle(thread)); }
    void terminateThread(Handle thread) override { TerminateThread(systemHandle(thread), 1); }

    void setThreadPriority(Handle thread, int priority) override {
        SetThreadPriority(systemHandle(thread), priority);
    }
    int threadPriority(Handle thread) override { return GetThreadPriority(systemHandle(thread)); }
    void setCurrentPriority(int priority) override {
        SetThreadPriority(GetCurrentThread(), priority);
    }
    int currentPriority() override { return GetThreadPriority(GetCurrentThread()); }

    std::uint32_t currentThreadId() override { return GetCurrentThreadId(); }
    void sleep(int ms) override { Sleep(static_cast<DWORD>(ms > 0 ? ms : 0)); }

    std::int64_t counterFrequency() override {
        LARGE_INTEGER frequency{};
        return QueryPerformanceFrequency(&frequency) ? frequency.QuadPart : 0;
    }
    std::int64_t counter() override {
        LARGE_INTEGER count{};
        return QueryPerformanceCounter(&count) ? count.QuadPart : 0;
    }
    std::uint32_t mediaTime() override { return timeGetTime(); }
    std::uint32_t tickCount() override { return GetTickCount(); }

    unsigned shortestTimerPeriod() override {
        TIMECAPS caps{};
        return timeGetDevCaps(&caps, sizeof caps) == TIMERR_NOERROR ? caps.wPeriodMin : 0;
    }
    bool beginTimerPeriod(unsigned ms) override { return timeBeginPeriod(ms) == TIMERR_NOERROR; }
    void endTimerPeriod(unsigned ms) override { timeEndPeriod(ms); }
};

} // namespace

Kernel& Kernel::native() {
    static Win32Kernel* const instance = new Win32Kernel; // outlives every static object
    return *instance;
}

} // namespace velorine
