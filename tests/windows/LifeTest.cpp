#include "tests/windows/PluginHost.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <tlhelp32.h>

namespace velorine::test {
namespace {

int threadsOfThisProcess() {
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    int count = 0;
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry))
        if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
    CloseHandle(snapshot);
    return count;
}

int handlesOfThisProcess() {
    DWORD count = 0;
    EXPECT_TRUE(GetProcessHandleCount(GetCurrentProcess(), &count));
    return static_cast<int>(count);
}

void playALittle() {
    PluginHost host;
    host.open();
    host.write(noise(Capture::rate / 4, 1));
    host.close(false);
    const DWORD call = GetTickCount();
    host.quit();
    EXPECT_LE(GetTickCount() - call, 6000u);
}

/// The window that a host keeps has our filter for good, so the library stays.
TEST(Life, ALibraryThatWatchesAWindowIsNeverUnloaded) {
    VelorineHostWindow answers{};
    answers.send = [](VelorineHostWindow*, unsigned, std::uintptr_t wParam,
                      std::intptr_t) -> std::intptr_t {
        return static_cast<std::intptr_t>(wParam) + 1;
    };
    const AnsweringWindow window{answers};
    const HWND handle = static_cast<HWND>(window.handle());
    const LONG_PTR before = GetWindowLongPtrA(handle, GWLP_WNDPROC);
    HMODULE library = LoadLibraryA(VELORINE_LIBRARY);
    auto* const out = reinterpret_cast<Out_Module* (*)()>(
        reinterpret_cast<void*>(GetProcAddress(library, "winampGetOutModule")))();
    out->hMainWindow = handle;
    out->Init();
    EXPECT_EQ(GetWindowLongPtrA(handle, GWLP_WNDPROC), before);
    out->Open(44100, 2, 16, 0, 0);
    EXPECT_NE(GetWindowLongPtrA(handle, GWLP_WNDPROC), before);
    EXPECT_EQ(SendMessageA(handle, WM_USER, 41, 0), 42) << "the filter lets everything through";
    out->Close();
    out->Quit();
    FreeLibrary(library); // the host's own hold on it
    EXPECT_EQ(GetModuleHandleA("out_velorine.dll"), library);
    EXPECT_EQ(SendMessageA(handle, WM_USER, 41, 0), 42);
}

TEST(Life, TenLivesLeaveNoThreadAndNoHandleBehind) {
    playALittle(); // the sound system's own threads stay
    playALittle();
    const int threads = threadsOfThisProcess();
    const int handles = handlesOfThisProcess();
    for (int life = 0; life < 10; ++life)
        playALittle();
    EXPECT_LE(threadsOfThisProcess(), threads);
    EXPECT_LE(handlesOfThisProcess(), handles + 4) << "what the sound system itself may keep";
}

TEST(Life, AHostWithoutAWindowPlays) {
    HMODULE library = LoadLibraryA(VELORINE_LIBRARY);
    auto* const out = reinterpret_cast<Out_Module* (*)()>(
        reinterpret_cast<void*>(GetProcAddress(library, "winampGetOutModule")))();
    out->hMainWindow = nullptr;
    out->Init();
    EXPECT_GE(out->Open(44100, 2, 16, 0, 0), 0);
    std::vector<Frame> music = noise(576, 1);
    EXPECT_EQ(out->Write(reinterpret_cast<char*>(music.data()), 576 * sizeof(Frame)), 0);
    out->Close();
    out->Config(nullptr);
    out->About(nullptr);
    out->Quit();
    FreeLibrary(library);
}

} // namespace
} // namespace velorine::test
