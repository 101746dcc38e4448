#include "tests/support/AnsweringWindow.h"

#include <windows.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace velorine::test {

namespace {

constexpr const char* className = "Velorine test host";
constexpr UINT endMessage = WM_APP;

LRESULT CALLBACK windowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
    __attribute__((force_align_arg_pointer));

LRESULT CALLBACK windowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* const answers =
        reinterpret_cast<VelorineHostWindow*>(GetWindowLongPtrA(window, GWLP_USERDATA));
    switch (message) {
    case WM_USER:
        return answers && answers->send ? answers->send(answers, message, wParam, lParam) : 0;
    case endMessage:
        DestroyWindow(window);
        return 0;
    case WM_DESTROY:
        PostQuitMessage(0);
        return 0;
    default:
        return DefWindowProcA(window, message, wParam, lParam);
    }
}

} // namespace

struct AnsweringWindow::Native {
    explicit Native(VelorineHostWindow& answers) : thread([this, &answers] { run(answers); }) {
        std::unique_lock guard{mutex};
        changed.wait(guard, [this] { return made; });
    }

    ~Native() {
        PostMessageA(window, endMessage, 0, 0);
        thread.join();
    }

    void run(VelorineHostWindow& answers) {
        WNDCLASSA description{};
        description.lpfnWndProc = windowProc;
        description.hInstance = GetModuleHandleA(nullptr);
        description.lpszClassName = className;
        RegisterClassA(&description);
        {
            const std::lock_guard guard{mutex};
            window = CreateWindowExA(0, className, "host", WS_OVERLAPPEDWINDOW, 0, 0, 100, 100,
                                     nullptr, nullptr, description.hInstance, nullptr);
            SetWindowLongPtrA(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(&answers));
            made = true;
        }
        changed.notify_all();
        MSG message;
        while (GetMessageA(&message, nullptr, 0, 0) > 0)
            DispatchMessageA(&message);
    }

    std::mutex mutex;
    std::condition_variable changed;
    bool made = false;
    HWND window = nullptr;
    std::thread thread; ///< last: it uses the rest
};

AnsweringWindow::AnsweringWindow(VelorineHostWindow& answers)
    : native(std::make_unique<Native>(answers)) {}

AnsweringWindow::~AnsweringWindow() = default;

void* AnsweringWindow::handle() const noexcept {
    return native->window;
}

} // namespace velorine::test
