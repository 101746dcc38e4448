#include "tests/player/AudioFiles.h"
#include "tests/player/Program.h"

#include <gtest/gtest.h>

namespace velorine::test {
namespace {

TEST(Usage, VersionAndHelpAreData) {
    const Finished version = run({"--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_TRUE(version.out.starts_with("velorine ")) << version.out;
    EXPECT_EQ(version.err, "");

    const Finished help = run({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    for (const char* command : {"play", "render", "spectrum", "devices", "settings", "presets"})
        EXPECT_NE(help.out.find(command), std::string::npos) << command;
    EXPECT_EQ(help.err, "");
    EXPECT_NE(run({"play", "--help"}).out.find("space pause"), std::string::npos);
}

class WrongUsage : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(WrongUsage, IsOneLineAndExitCode2) {
    const Finished finished = run(GetParam());
    EXPECT_EQ(finished.exitCode, 2);
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.errLines().size(), 1U) << finished.err;
}

using Words = std::vector<std::string>;
INSTANTIATE_TEST_SUITE_P(Lines, WrongUsage,
                         testing::Values(Words{}, Words{"dance"}, Words{"play"},
                                         Words{"play", "--loud", "a.wav"}, Words{"render", "a.wav"},
                                         Words{"render", "-o", "a.wav"},
                                         Words{"play", "--set", "Eq/enable", "a.wav"},
                                         Words{"play", "--set", "Eq/nothing=1", "a.wav"},
                                         Words{"play", "--set", "Output/bits=many", "a.wav"},
                                         Words{"settings"}, Words{"settings", "get"},
                                         Words{"settings", "get", "No/such"},
                                         Words{"settings", "set", "Eq/eq0"}, Words{"presets"},
                                         Words{"presets", "save"}, Words{"devices", "more"}));

TEST(Usage, DevicesAlwaysOfferTheNullTarget) {
    const Finished finished = run({"devices"});
    EXPECT_EQ(finished.exitCode, 0);
    EXPECT_NE(("\n" + finished.out).find("\nNone\t"), std::string::npos) << finished.out;
    EXPECT_EQ(finished.err, "");
}

TEST(Usage, DataThatCannotBeWrittenIsAFailure) {
    const Scratch scratch;
    const std::string command =
        std::string{VELORINE_PROGRAM} + " devices > /dev/full 2> " + scratch.path("err");
    const int status = std::system(command.c_str());
    EXPECT_EQ(WEXITSTATUS(status), 1);
}

} // namespace
} // namespace velorine::test
