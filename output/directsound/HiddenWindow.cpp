#include "output/directsound/HiddenWindow.h"

#include "foundation/win32/OwnLibrary.h"

namespace velorine {

namespace {

constexpr const char* className = "DS Window";
constexpr DWORD windowStyle = 0x80cf0000; ///< a pop-up with an overlapped window's parts, not shown
constexpr int windowSize = 256;
constexpr UINT endMessage = WM_APP;

LRESULT CALLBACK windowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
    __attribute__((force_align_arg_pointer));

LRESULT CALLBACK windowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_CLOSE: // it lives as long as the connection that it owns
        return 0;
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

HiddenWindow::HiddenWindow() {
    start(false);
    made.wait();
}

HiddenWindow::~HiddenWindow() {
    if (window) PostMessageA(window, endMessage, 0, 0);
    join();
}

std::uint32_t HiddenWindow::run() {
    const HINSTANCE library = ownLibrary();
    WNDCLASSA description{};
    description.lpfnWndProc = windowProc;
    description.hInstance = library;
    description.hCursor = LoadCursorA(nullptr, IDC_ARROW);
    description.lpszClassName = className;
    RegisterClassA(&description); // fails harmlessly when another connection has done so

    window = CreateWindowExA(0, className, "DS window", windowStyle, CW_USEDEFAULT, CW_USEDEFAULT,
                             windowSize, windowSize, nullptr, nullptr, library, nullptr);
    const bool exists = window != nullptr;
    made.set();

    MSG message;
    while (exists && GetMessageA(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageA(&message);
    }
    return 0;
}

} // namespace velorine
