#include "config/KeyTable.h"
#include "tests/windows/PluginHost.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

namespace velorine::test {
namespace {

/// What the system's own tool says of a value below our root.
std::string queried(const std::string& section, const std::string& name) {
    const std::string command =
        "reg query \"HKCU\\" + keyPath(settingsRoot, section) + "\" /v \"" + name + "\"";
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe{_popen(command.c_str(), "r"), _pclose};
    std::string answer;
    char line[256];
    while (pipe && std::fgets(line, sizeof line, pipe.get()))
        answer += line;
    return answer;
}

void expectNumber(const std::string& section, const std::string& name, DWORD value) {
    const std::string answer = queried(section, name);
    EXPECT_NE(answer.find("REG_DWORD"), std::string::npos) << answer;
    char digits[16];
    std::snprintf(digits, sizeof digits, "0x%lx", value);
    EXPECT_NE(answer.find(digits), std::string::npos) << name << "\n" << answer;
}

TEST(Registry, HoldsWhatTheModuleSavedAtItsEnd) {
    {
        PluginHost host;
        host.quit();
    }
    expectNumber("Eq", "enable", 0);             // the user's own stays
    expectNumber("Eq", "headroom", 0x404c'cccd); // the tuning's
    expectNumber("Eq", "eq16", 0x3f24'872f);
    expectNumber("Eq", "del0", 0x8000'0000);
    expectNumber("General", "showwnd", 0);
}

TEST(Registry, OnlyTwoValuesOfTheTuningAreTheUsers) {
    {
        PluginHost host{{{"Eq", "magnitude", 0x3e80'0000}, {"Eq", "eqall", 0x3f00'0000}}};
        host.quit();
    }
    expectNumber("Eq", "magnitude", 0x3e80'0000);
    expectNumber("Eq", "eqall", 0x3f80'0000);
    writeSetting({"Eq", "magnitude", 0x3f36'db6e});
}

} // namespace
} // namespace velorine::test
