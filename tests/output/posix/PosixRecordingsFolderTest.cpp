#include "output/RecorderFile.h"
#include "output/RecordingsFolder.h"
#include "tests/output/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace velorine {
namespace {

/// The environment of a user of a temporary home directory; put back at the end.
class RecordingsFolderOfUser : public testing::Test {
protected:
    RecordingsFolderOfUser() {
        for (const char* name : {"XDG_MUSIC_DIR", "XDG_CONFIG_HOME", "HOME"}) {
            const char* const value = std::getenv(name);
            saved[name] = value ? std::optional<std::string>{value} : std::nullopt;
            unsetenv(name);
        }
        setenv("HOME", home().c_str(), 1);
    }
    ~RecordingsFolderOfUser() override {
        for (const auto& [name, value] : saved) {
            if (value)
                setenv(name.c_str(), value->c_str(), 1);
            else
                unsetenv(name.c_str());
        }
    }

    std::string home() const { return folder.path("home"); }

    void desktopSays(const std::string& config, const std::string& lines) {
        std::filesystem::create_directories(config);
        std::ofstream{config + "/user-dirs.dirs"} << lines;
    }

    test::TemporaryFolder folder;
    std::map<std::string, std::optional<std::string>> saved;
};

TEST_F(RecordingsFolderOfUser, IsInTheMusicFolder) {
    EXPECT_EQ(recordingsFolder(), home() + "/Music/Velorine/");
}

TEST_F(RecordingsFolderOfUser, FollowsTheEnvironmentFirst) {
    desktopSays(home() + "/.config", "XDG_MUSIC_DIR=\"$HOME/Songs\"\n");
    setenv("XDG_MUSIC_DIR", "/srv/music", 1);
    EXPECT_EQ(recordingsFolder(), "/srv/music/Velorine/");
    setenv("XDG_MUSIC_DIR", "/srv/music/", 1);
    EXPECT_EQ(recordingsFolder(), "/srv/music/Velorine/");
    setenv("XDG_MUSIC_DIR", "relative", 1); // not allowed to be
    EXPECT_EQ(recordingsFolder(), home() + "/Songs/Velorine/");
}

TEST_F(RecordingsFolderOfUser, FollowsTheDesktop) {
    const struct {
        const char *lines, *folder; ///< without a slash first: below home
    } cases[] = {
        {"XDG_MUSIC_DIR=\"$HOME/Musik\"\n", "Musik"},
        {"# XDG_MUSIC_DIR=\"$HOME/no\"\nXDG_DESKTOP_DIR=\"$HOME/Desktop\"\n"
         "  XDG_MUSIC_DIR=\"/data/My \\\"best\\\" \\$ongs\"  \n",
         "/data/My \"best\" $ongs"},
        {"XDG_MUSIC_DIR=\"$HOME/a\"\nXDG_MUSIC_DIR=\"$HOME/b\"", "b"},
        {"XDG_MUSIC_DIR=\"$HOME/\"\n", ""},
        {"XDG_MUSIC_DIR=\"$HOMELAND/x\"\n", "Music"},
        {"XDG_MUSIC_DIR=\"music\"\n", "Music"},
        {"XDG_MUSIC_DIR=\"", "Music"},
        {"XDG_MUSIC_DIR=\"$HOME/cut\\", "cut\\"},
        {"", "Music"},
    };
    for (const auto& [lines, wanted] : cases) {
        desktopSays(home() + "/.config", lines);
        std::string full = wanted[0] == '/' ? wanted : home() + "/" + wanted;
        if (full.back() != '/') full += '/';
        EXPECT_EQ(recordingsFolder(), full + "Velorine/") << lines;
    }
}

TEST_F(RecordingsFolderOfUser, FindsTheDesktopsFileInTheConfigurationFolder) {
    desktopSays(folder.path("config"), "XDG_MUSIC_DIR=\"$HOME/Songs\"\n");
    setenv("XDG_CONFIG_HOME", folder.path("config").c_str(), 1);
    EXPECT_EQ(recordingsFolder(), home() + "/Songs/Velorine/");
}

TEST_F(RecordingsFolderOfUser, IsInTheWorkingFolderWithoutAHome) {
    unsetenv("HOME");
    EXPECT_EQ(recordingsFolder(), "Velorine/");
    setenv("HOME", "", 1);
    EXPECT_EQ(recordingsFolder(), "Velorine/");
}

TEST_F(RecordingsFolderOfUser, IsMadeWithTheMusicFolderThatItStandsIn) {
    std::filesystem::create_directory(home());
    EXPECT_FALSE(RecorderFiles::native().create((home() + "/other/deep/x.wav").c_str()));
    EXPECT_FALSE(std::filesystem::exists(home() + "/other"));
    EXPECT_TRUE(RecorderFiles::native().create((recordingsFolder() + "x.wav").c_str()));
    EXPECT_TRUE(std::filesystem::exists(home() + "/Music/Velorine/x.wav"));
}

} // namespace
} // namespace velorine
