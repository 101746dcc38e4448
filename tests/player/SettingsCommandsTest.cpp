#include "tests/player/AudioFiles.h"
#include "tests/player/Program.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace velorine::test {
namespace {

/// The program with a settings folder of its own.
class SettingsCommandsTest : public testing::Test {
protected:
    Finished settings(std::vector<std::string> words) {
        words.insert(words.begin(), "settings");
        return run(words, environment());
    }
    Finished presets(std::vector<std::string> words) {
        words.insert(words.begin(), "presets");
        return run(words, environment());
    }
    std::string value(const std::string& name) { return settings({"get", name}).out; }

    Program::Environment environment() const { return {{"VELORINE_CONFIG_DIR", folder}}; }

    Scratch scratch;
    std::string folder = scratch.path("settings");
};

TEST_F(SettingsCommandsTest, ValueOutlivesTheProgram) {
    EXPECT_EQ(value("General/flush_ms"), "80\n");
    const Finished set = settings({"set", "General/flush_ms=125"});
    EXPECT_EQ(set.exitCode, 0);
    EXPECT_EQ(set.out + set.err, "");
    EXPECT_EQ(value("General/flush_ms"), "125\n");
    EXPECT_EQ(settings({"unset", "General/flush_ms"}).exitCode, 0);
    EXPECT_EQ(value("General/flush_ms"), "80\n");
}

TEST_F(SettingsCommandsTest, NamesAndTextsMayHoldSpaces) {
    EXPECT_EQ(settings({"set", "General/Audio Device=Front speakers"}).exitCode, 0);
    EXPECT_EQ(value("General/Audio Device"), "Front speakers\n");
}

TEST_F(SettingsCommandsTest, ListTellsWhatIsSet) {
    settings({"set", "Output/noiseshaping=yes"});
    const Finished list = settings({"list", "Output"});
    EXPECT_EQ(list.exitCode, 0);
    EXPECT_NE(list.out.find("Output/bits=1\tdefault\t"), std::string::npos) << list.out;
    EXPECT_NE(list.out.find("Output/noiseshaping=true\tset\t"), std::string::npos) << list.out;
    EXPECT_EQ(list.out.find("Eq/"), std::string::npos);
    EXPECT_NE(settings({"list"}).out.find("Eq/eq0=1.0\tdefault\t"), std::string::npos);
    EXPECT_EQ(settings({"list", "Nowhere"}).exitCode, 2);
}

TEST_F(SettingsCommandsTest, PathNamesTheFile) {
    EXPECT_EQ(settings({"path"}).out, folder + "/settings.toml\n");
}

TEST_F(SettingsCommandsTest, NoFolderIsSaid) {
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"settings", "path"},
          std::vector<std::string>{"settings", "set", "Output/bits=16"},
          std::vector<std::string>{"presets", "save", "mine"}}) {
        const Finished finished = run(words);
        EXPECT_EQ(finished.exitCode, 1);
        EXPECT_EQ(finished.errLines().size(), 1U) << finished.err;
    }
    EXPECT_EQ(run({"settings", "get", "Output/bits"}).out, "1\n");
}

TEST_F(SettingsCommandsTest, CheckPointsAtTheLine) {
    EXPECT_EQ(settings({"check"}).exitCode, 0);
    std::filesystem::create_directory(folder);
    writeText(folder + "/settings.toml", "[Output]\nbits = \"many\"\n");
    const Finished check = settings({"check"});
    EXPECT_EQ(check.exitCode, 1);
    EXPECT_TRUE(check.out.starts_with(folder + "/settings.toml:2:")) << check.out;
}

TEST_F(SettingsCommandsTest, ExportAndImportMoveEverything) {
    settings({"set", "General/flush_ms=125"});
    settings({"set", "Eq/eq3=1.5"});
    presets({"save", "mine"});
    const std::string file = scratch.path("all.reg");
    EXPECT_EQ(settings({"export", file}).exitCode, 0);

    folder = scratch.path("elsewhere");
    EXPECT_EQ(settings({"import", file}).exitCode, 0);
    EXPECT_EQ(value("General/flush_ms"), "125\n");
    EXPECT_EQ(value("Eq/eq3"), "1.5\n");
    EXPECT_EQ(presets({"list"}).out, "mine\n");

    writeText(file, "no registry export");
    EXPECT_EQ(settings({"import", file}).exitCode, 1);
    EXPECT_EQ(settings({"import", scratch.path("missing.reg")}).exitCode, 1);
}

TEST_F(SettingsCommandsTest, SetSaysThatTheFactoryTuningReturns) {
    const Finished plain = settings({"set", "Eq/eq3=1.5"});
    EXPECT_EQ(plain.exitCode, 0);
    EXPECT_NE(plain.err.find("the next start restores the factory value"), std::string::npos);
    EXPECT_EQ(settings({"set", "Eq/enable=false"}).err, "");

    presets({"save", "mine"});
    presets({"load", "mine"});
    const Finished withPreset = settings({"set", "Eq/eq3=1.25"});
    EXPECT_EQ(withPreset.err.find("factory"), std::string::npos) << withPreset.err;
    EXPECT_NE(withPreset.err.find("'mine'"), std::string::npos) << withPreset.err;
}

TEST_F(SettingsCommandsTest, LoadedPresetIsTheSoundOfEachStart) {
    settings({"set", "Eq/eq3=1.5"});
    EXPECT_EQ(presets({"save", "bright"}).exitCode, 0);
    settings({"set", "Eq/eq3=0.5"});
    EXPECT_EQ(presets({"load", "bright"}).exitCode, 0);
    EXPECT_EQ(presets({"list"}).out, "bright\tactive\n");
    EXPECT_EQ(value("Eq/eq3"), "1.5\n");

    // A start of the engine, which writes its tuning over the section.
    run({"play", "--null", scratch.path("missing")}, environment());
    EXPECT_EQ(value("Eq/eq3"), "1.5\n");

    EXPECT_EQ(presets({"delete", "bright"}).exitCode, 0);
    EXPECT_EQ(presets({"list"}).out, "");
    EXPECT_EQ(value("General/Active Preset"), "\n");
    run({"play", "--null", scratch.path("missing")}, environment());
    EXPECT_EQ(value("Eq/eq3"), "1.0\n");
}

TEST_F(SettingsCommandsTest, PresetThatIsNotThereIsNamed) {
    for (const char* action : {"load", "delete"}) {
        const Finished finished = presets({action, "nothing"});
        EXPECT_EQ(finished.exitCode, 1);
        EXPECT_NE(finished.err.find("'nothing'"), std::string::npos);
    }
    EXPECT_EQ(presets({"save", "../evil"}).exitCode, 2);
}

} // namespace
} // namespace velorine::test
