#include "foundation/Thread.h"
#include "foundation/win32/OwnLibrary.h"
#include "kestrix/dsphost/WaDspWindowThread.h"

#include <windows.h>

#include <objbase.h>

#include <utility>

namespace velorine {

namespace {

constexpr char className[] = "Orvex WaDSP Window Class";
constexpr char caption[] = "Orvex WaDSP Window";
constexpr DWORD style = 0x80CF0000; ///< a popup with everything that a plug-in may expect of one
constexpr int endTimeoutMs = 5000;

} // namespace

struct WaDspWindowThread::State {
    explicit State(std::function<void(unsigned)> handler) : onMessage(std::move(handler)) {}

    const std::function<void(unsigned)> onMessage;
    WNDCLASSEXA registration{};
    HWND window = nullptr; ///< written by the thread before `started` and behind `stop`
    FlaggedEvent started;
    FlaggedEvent ended;
    bool comIsUp = false; ///< the thread's own
};

class WaDspWindowThread::Pump final : public Thread {
public:
    explicit Pump(State& shared) : state(shared) {}

    /// A thread that a plug-in holds is left to the base class, which ends it by force.
    ~Pump() override {
        stop.set();
        if (state.ended.wait(endTimeoutMs)) join();
    }

    std::uint32_t run() override {
        openWindow();
        state.started.set();
        pumpMessages();
        if (state.window) DestroyWindow(state.window);
        UnregisterClassA(className, state.registration.hInstance);
        if (state.comIsUp) CoUninitialize();
        state.ended.set();
        return 0;
    }

private:
    static LRESULT CALLBACK windowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
        __attribute__((force_align_arg_pointer));

    void openWindow() {
        state.registration.lpfnWndProc = windowProc;
        RegisterClassExA(&state.registration); // it may be there: of another engine's stage
        state.window = CreateWindowExA(0, className, caption, style, 0, 0, 0, 0, nullptr, nullptr,
                                       state.registration.hInstance, &state);
    }

    void pumpMessages() {
        const HANDLE ending = reinterpret_cast<HANDLE>(stop.native());
        while (!stop.isSet()) {
            MsgWaitForMultipleObjects(1, &ending, FALSE, INFINITE, QS_ALLINPUT);
            MSG message{};
            while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
                TranslateMessage(&message);
                DispatchMessageA(&message);
            }
        }
    }

    State& state;
};

LRESULT CALLBACK WaDspWindowThread::Pump::windowProc(HWND window, UINT message, WPARAM wParam,
                                                     LPARAM lParam) {
    if (message == WM_NCCREATE) {
        const auto* const creation = reinterpret_cast<const CREATESTRUCTA*>(lParam);
        SetWindowLongPtrA(window, GWLP_USERDATA,
                          reinterpret_cast<LONG_PTR>(creation->lpCreateParams));
    }
    auto* const state =
        reinterpret_cast<State*>(static_cast<LONG_PTR>(GetWindowLongPtrA(window, GWLP_USERDATA)));
    switch (message) {
    case dspMessage::begin:
        if (state && !state->comIsUp) state->comIsUp = SUCCEEDED(CoInitialize(nullptr));
        return 0;
    case dspMessage::init:
    case dspMessage::config:
    case dspMessage::quit:
    case dspMessage::format:
        if (state) state->onMessage(message);
        return 0;
    default:
        return DefWindowProcA(window, message, wParam, lParam);
    }
}

WaDspWindowThread::WaDspWindowThread(std::function<void(unsigned)> onMessage)
    : state(std::make_unique<State>(std::move(onMessage))) {}

WaDspWindowThread::~WaDspWindowThread() = default;

void WaDspWindowThread::start() {
    if (pump) return;
    state->registration.cbSize = sizeof state->registration;
    state->registration.hInstance = ownLibrary();
    state->registration.hCursor = LoadCursorA(nullptr, reinterpret_cast<LPCSTR>(IDC_ARROW));
    state->registration.lpszClassName = className;
    pump = std::make_unique<Pump>(*state);
    pump->start(false);
    state->started.wait();
    state->started.reset();
    send(dspMessage::begin);
}

void WaDspWindowThread::send(unsigned message) {
    if (pump && state->window) SendMessageA(state->window, message, 0, 0);
}

void* WaDspWindowThread::window() const noexcept {
    return state->window;
}

void releaseDspLibrary(void* library) {
    FreeLibrary(static_cast<HMODULE>(library));
}

} // namespace velorine
