#include "config/posix/SettingsFolder.h"

#include "config/EmbeddedPreset.h"
#include "config/UserSettings.h"
#include "tests/config/Stores.h"
#include "tests/config/posix/TempFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <optional>
#include <set>

namespace velorine {

namespace {

using test::key;

/// Sets the variables that lead to the settings, and puts them back.
class FolderVariables {
public:
    FolderVariables(const char* own, const char* base, const char* home) {
        set("VELORINE_CONFIG_DIR", own);
        set("XDG_CONFIG_HOME", base);
        set("HOME", home);
    }
    ~FolderVariables() {
        for (const auto& [name, value] : before)
            apply(name.c_str(), value ? value->c_str() : nullptr);
    }
    FolderVariables(const FolderVariables&) = delete;
    FolderVariables& operator=(const FolderVariables&) = delete;

private:
    static void apply(const char* name, const char* value) {
        if (value)
            setenv(name, value, 1);
        else
            unsetenv(name);
    }
    void set(const char* name, const char* value) {
        const char* const old = std::getenv(name);
        before[name] = old ? std::optional<std::string>{old} : std::nullopt;
        apply(name, value);
    }

    std::map<std::string, std::optional<std::string>> before;
};

} // namespace

TEST(SettingsFolder, IsTheFirstThatIsNamed) {
    {
        const FolderVariables set{"/own", "/base", "/home/me"};
        EXPECT_EQ(settingsFolder(), "/own");
    }
    {
        const FolderVariables set{nullptr, "/base", "/home/me"};
        EXPECT_EQ(settingsFolder(), "/base/velorine");
    }
    {
        const FolderVariables set{"", "", "/home/me"};
        EXPECT_EQ(settingsFolder(), "/home/me/.config/velorine");
    }
    {
        const FolderVariables set{nullptr, "not/absolute", "/home/me"};
        EXPECT_EQ(settingsFolder(), "/home/me/.config/velorine");
    }
    {
        const FolderVariables set{nullptr, nullptr, nullptr};
        EXPECT_EQ(settingsFolder(), std::nullopt);
    }
}

TEST(UserSettings, StandInTheFolder) {
    const test::TempFolder folder;
    const FolderVariables set{(folder / "deep/er").c_str(), nullptr, nullptr};
    const UserSettings settings = openUserSettings({});
    EXPECT_EQ(settings.place, folder / "deep/er/settings.toml");
    EXPECT_FALSE(std::filesystem::exists(folder / "deep"));
    settings.store->set(key("Eq"), "softclip", 0U);
    EXPECT_EQ(test::contentOf(folder / "deep/er/settings.toml"), "[Eq]\nsoftclip = false\n");
    EXPECT_TRUE(settings.presets->save("Night", {{"headroom", 0x40000000}}));
    EXPECT_EQ(test::contentOf(folder / "deep/er/presets/Night.toml"), "[Eq]\nheadroom = 2.0\n");
    std::set<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator{folder / "deep/er/presets"})
        files.insert(entry.path().filename());
    EXPECT_EQ(files, (std::set<std::string>{".lock", "Night.toml"}));
}

TEST(UserSettings, WorkWithoutAHomeDirectory) {
    const FolderVariables set{nullptr, nullptr, nullptr};
    const UserSettings settings = openUserSettings({});
    EXPECT_EQ(settings.place, "");
    applyPreset(*settings.store);
    EXPECT_EQ(settings.store->dword(key("Eq"), "headroom"), 0x404CCCCDU);
    EXPECT_TRUE(settings.presets->save("Night", {{"headroom", 1}}));
    EXPECT_EQ(settings.presets->names(), (std::vector<std::string>{"Night"}));
    EXPECT_TRUE(checkUserSettings().empty());
}

TEST(UserSettings, WorkInAFolderThatCanNotBe) {
    const FolderVariables set{"/dev/null/velorine", nullptr, nullptr};
    const UserSettings settings = openUserSettings({});
    applyPreset(*settings.store);
    EXPECT_EQ(settings.store->dword(key("Eq"), "headroom"), 0x404CCCCDU);
    EXPECT_FALSE(settings.store->flush());
    EXPECT_FALSE(settings.presets->save("Night", {{"headroom", 1}}));
}

TEST(UserSettings, WarnOnceOfABrokenFile) {
    const test::TempFolder folder;
    const FolderVariables set{folder.path.c_str(), nullptr, nullptr};
    test::writeContent(folder / "settings.toml", "[Eq]\nheadroom = = 2\n");
    std::vector<std::string> warnings;
    const UserSettings settings =
        openUserSettings([&warnings](const std::string& text) { warnings.push_back(text); });
    EXPECT_TRUE(warnings.empty());
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(settings.store->exists(key("Eq"), "headroom"));
    ASSERT_EQ(warnings.size(), 1U);
    EXPECT_NE(warnings[0].find((folder / "settings.toml").string() + ":2:"), std::string::npos);
    EXPECT_NE(warnings[0].find((folder / "settings.toml.broken").string()), std::string::npos);
}

TEST(UserSettings, CheckNamesLineAndColumn) {
    const test::TempFolder folder;
    const FolderVariables set{folder.path.c_str(), nullptr, nullptr};
    EXPECT_TRUE(checkUserSettings().empty());
    test::writeContent(folder / "settings.toml",
                       "[Eq]\nheadroom = 1\nsoftclip = \"on\"\n  eq0 = true\nlim0 = 1e60\n"
                       "loudness = 1\n[Output]\nbits = 16.0\n[Sound]\nx = 1\n"
                       "[General]\n\"Audio Device\" = 5\nbeep = 1\nflush_ms = 99999999999\n");
    const auto remarks = checkUserSettings();
    ASSERT_EQ(remarks.size(), 8U);
    const auto expect = [&](std::size_t i, int line, int column, bool error, const char* text) {
        EXPECT_EQ(remarks[i].line, line) << i;
        EXPECT_EQ(remarks[i].column, column) << i;
        EXPECT_EQ(remarks[i].isError, error) << i;
        EXPECT_NE(remarks[i].text.find(text), std::string::npos) << remarks[i].text;
    };
    expect(0, 3, 12, true, "Eq/softclip takes true or false; the default stands: true");
    expect(1, 4, 9, true, "Eq/eq0 takes a number; the default stands: 1.0");
    expect(2, 5, 8, true, "Eq/lim0 takes a number");
    expect(3, 6, 12, false, "there is no setting Eq/loudness");
    expect(4, 8, 8, true, "Output/bits takes a whole number; the default stands: 1");
    expect(5, 10, 5, false, "there is no section Sound");
    expect(6, 12, 18, true, "General/Audio Device takes a text; the default stands: \"\"");
    expect(7, 14, 12, true, "General/flush_ms takes a whole number");

    test::writeContent(folder / "settings.toml", "[Eq]\nheadroom = = 2\n");
    const auto broken = checkUserSettings();
    ASSERT_EQ(broken.size(), 1U);
    EXPECT_EQ(broken[0].line, 2);
    EXPECT_EQ(broken[0].column, 12);
    EXPECT_FALSE(std::filesystem::exists(folder / "settings.toml.broken")); // it only looks
}

} // namespace velorine
