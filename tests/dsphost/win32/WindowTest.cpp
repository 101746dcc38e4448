#include "tests/dsphost/DspRig.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <array>
#include <string>

namespace velorine::test {
namespace {

HWND windowOf(const WaDspStage& stage) {
    return static_cast<HWND>(stage.parentWindow);
}

TEST(WaDspWindow, IsAHiddenPopupOfItsClass) {
    DspChain chain;
    chain.stage.enable = true;
    chain.writeCounting(2000);
    chain.pumpAll();
    const HWND window = windowOf(chain.stage);
    ASSERT_TRUE(IsWindow(window));
    std::array<char, 64> text{};
    GetClassNameA(window, text.data(), static_cast<int>(text.size()));
    EXPECT_STREQ(text.data(), "Orvex WaDSP Window Class");
    GetWindowTextA(window, text.data(), static_cast<int>(text.size()));
    EXPECT_STREQ(text.data(), "Orvex WaDSP Window");
    EXPECT_FALSE(IsWindowVisible(window));
    EXPECT_EQ(static_cast<DWORD>(GetWindowLongA(window, GWL_STYLE)) & 0x80CF0000, 0x80CF0000);
    EXPECT_NE(GetWindowThreadProcessId(window, nullptr), GetCurrentThreadId());
}

TEST(WaDspWindow, TakesTheMessagesOfOthers) {
    DspChain chain;
    chain.loadModule(0);
    chain.stage.enable = true;
    chain.writeCounting(2000);
    chain.pumpAll();
    SendMessageA(windowOf(chain.stage), dspMessage::config, 0, 0);
    SendMessageA(windowOf(chain.stage), dspMessage::format, 0, 0);
    EXPECT_EQ(chain.operations(), "imcm");
}

TEST(WaDspWindow, EndsWithItsStage) {
    HWND window = nullptr;
    {
        DspChain chain;
        chain.stage.enable = true;
        chain.writeCounting(2000);
        chain.pumpAll();
        window = windowOf(chain.stage);
        ASSERT_TRUE(IsWindow(window));
    }
    EXPECT_FALSE(IsWindow(window));
}

} // namespace
} // namespace velorine::test
