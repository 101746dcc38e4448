#include "tests/support/ErrorReader.h"

#include <windows.h>

#include <array>
#include <cstdio>
#include <thread>

namespace velorine::test {

namespace {

constexpr int textOfMessageBox = 0xffff; ///< item of the dialog
constexpr DWORD betweenLooksMs = 10;

void readAndClose(HWND box) {
    std::array<char, 1600> text{};
    GetDlgItemTextA(box, textOfMessageBox, text.data(), static_cast<int>(text.size()));
    if (text[0] == '\0') return; // not filled in yet
    std::fprintf(stderr, "velorine: %s\n", text.data());
    std::fflush(stderr);
    SendMessageA(box, WM_COMMAND, IDOK, 0);
}

} // namespace

void readErrorsAloud() {
    std::thread{[] {
        for (;; Sleep(betweenLooksMs))
            if (HWND box = FindWindowA("#32770", "Error")) {
                DWORD process = 0;
                GetWindowThreadProcessId(box, &process);
                if (process == GetCurrentProcessId()) readAndClose(box);
            }
    }}.detach();
}

} // namespace velorine::test
