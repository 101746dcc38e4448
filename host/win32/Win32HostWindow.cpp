#include "host/HostWindow.h"

#include "foundation/win32/OwnLibrary.h"

#include <windows.h>

#include <array>
#include <atomic>

namespace velorine {

namespace {

constexpr UINT sendTimeoutMs = 2000;

WNDPROC previousWndProc = nullptr; ///< written once, before the filter is in place
std::atomic<bool> endOfFileSeen{false};

LRESULT CALLBACK filterProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
    __attribute__((force_align_arg_pointer));

LRESULT CALLBACK filterProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    endOfFileSeen.store(endOfFileAfter(message, endOfFileSeen.load(std::memory_order_relaxed)),
                        std::memory_order_relaxed);
    return CallWindowProcA(previousWndProc, window, message, wParam, lParam);
}

/// The window keeps our filter for good, so the library must never be unloaded.
void pinOwnLibrary() {
    const HMODULE own = ownLibrary();
    std::array<char, MAX_PATH> path{};
    if (own && GetModuleFileNameA(own, path.data(), static_cast<DWORD>(path.size())) > 0)
        LoadLibraryA(path.data());
}

} // namespace

/// With a time-out: the window's thread may itself be waiting for ours.
std::intptr_t HostWindow::send(std::uintptr_t wParam, std::intptr_t lParam) const {
    if (!window) return 0;
    DWORD_PTR answer = 0;
    const LRESULT answered =
        SendMessageTimeoutA(static_cast<HWND>(window), hostMessage::user, wParam, lParam,
                            SMTO_ABORTIFHUNG | SMTO_NORMAL, sendTimeoutMs, &answer);
    return answered ? static_cast<std::intptr_t>(answer) : 0;
}

void HostWindow::watch() {
    if (watched || !window) return;
    watched = true;
    pinOwnLibrary();
    auto* const target = static_cast<HWND>(window);
    auto* const current = reinterpret_cast<WNDPROC>(GetWindowLongPtrA(target, GWLP_WNDPROC));
    if (current == filterProc) return;
    previousWndProc = current;
    SetWindowLongPtrA(target, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&filterProc));
}

bool HostWindow::sawEndOfFile() noexcept {
    return endOfFileSeen.load(std::memory_order_relaxed);
}

} // namespace velorine
