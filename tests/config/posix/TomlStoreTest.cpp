#include "config/posix/TomlStore.h"

#include "config/KeyTable.h"
#include "config/RegistryNode.h"
#include "tests/config/Stores.h"
#include "tests/config/posix/TempFolder.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <thread>

namespace velorine {

namespace fs = std::filesystem;

namespace {

using test::contentOf;
using test::key;
using test::writeContent;

/// As each start does with the section that has most settings.
void writeDefaults(SettingsStore& store) {
    const SettingsBatch batch{store};
    for (const SettingKey& setting : settingKeys())
        if (setting.section == "Eq") store.set(key("Eq"), setting.name, setting.bits);
}

class TomlStores : public testing::Test {
protected:
    std::optional<std::uint32_t> eq(std::string_view name) { return store.dword(key("Eq"), name); }

    const test::TempFolder folder;
    const fs::path file = folder / "settings.toml";
    TomlStore store{file};
};

ino_t inodeOf(const fs::path& file) {
    struct stat status {};
    return ::stat(file.c_str(), &status) == 0 ? status.st_ino : 0;
}

} // namespace

TEST_F(TomlStores, FileIsForPeople) {
    {
        const SettingsBatch batch{store};
        store.set(key("General"), "Fade on seek", 0U);
        store.set(key("General"), "Audio Device", std::string{"Caf\xC3\xA9 \"1\""});
        store.set(key("General"), "flush_ms", 80U);
        store.set(key("Eq"), "headroom", 0x404CCCCDU);
        store.set(key("Eq"), "del0", 0x80000000U);
        store.set(key("Output"), "recordmode", 0xFFFFFFFFU);
    }
    EXPECT_EQ(contentOf(file), "[General]\n"
                               "\"Fade on seek\" = false\n"
                               "\"Audio Device\" = \"Caf\xC3\xA9 \\\"1\\\"\"\n"
                               "flush_ms = 80\n"
                               "\n"
                               "[Eq]\n"
                               "headroom = 3.2\n"
                               "del0 = -0.0\n"
                               "\n"
                               "[Output]\n"
                               "recordmode = -1\n");
}

TEST_F(TomlStores, HandWrittenValuesAreTakenForWhatBelongs) {
    writeContent(file, "[Eq]\neq0 = 1\neq1 = -2\nheadroom = 0x10\nlim0 = inf\nlim1 = -nan\n"
                       "softclip = true\nenable = 2\natten0 = 1_0.5\n"
                       "[Output]\nbits = 0b11\n");
    EXPECT_EQ(eq("eq0"), 0x3F800000U);
    EXPECT_EQ(eq("eq1"), 0xC0000000U);
    EXPECT_EQ(eq("headroom"), 0x41800000U);
    EXPECT_EQ(eq("lim0"), 0x7F800000U);
    EXPECT_EQ(eq("lim1"), 0xFFC00000U);
    EXPECT_EQ(eq("softclip"), 1U);
    EXPECT_EQ(eq("enable"), 2U);
    EXPECT_EQ(eq("atten0"), 0x41280000U);
    EXPECT_EQ(store.dword(key("Output"), "bits"), 3U);
}

TEST_F(TomlStores, WrongTypesLeaveTheDefault) {
    writeContent(file, "[Eq]\nheadroom = true\nsoftclip = 1.0\neq0 = [1.0]\neq1 = 1979-05-27\n"
                       "eq2 = 1e60\n[Output]\nbits = true\nrecordmode = 5000000000\n");
    RegistryNode node{store, RegistryNode::read};
    for (const char* name : {"headroom", "softclip", "eq0", "eq1", "eq2"}) {
        std::uint32_t value = 77;
        node.exchangeDword("Eq", name, value);
        EXPECT_EQ(value, 77U) << name;
        EXPECT_TRUE(node.valueExists("Eq", name));
    }
    for (const char* name : {"bits", "recordmode"}) {
        std::int32_t value = 77;
        node.exchangeInt("Output", name, value);
        EXPECT_EQ(value, 77) << name;
    }
}

TEST_F(TomlStores, CommentsAndUnknownValuesStay) {
    writeContent(file, "# mine\nversion = 3\n[Eq]\nheadroom = 1.0 # quiet\nfuture = { a = 1 }\n"
                       "[Someone]\nelse = \"x\"\n");
    store.set(key("Eq"), "headroom", 0x40000000U);
    store.set(key("Eq"), "eqall", 0x3F000000U);
    EXPECT_EQ(contentOf(file),
              "# mine\nversion = 3\n[Eq]\nheadroom = 2.0 # quiet\nfuture = { a = 1 }\n"
              "eqall = 0.5\n[Someone]\nelse = \"x\"\n");
}

TEST_F(TomlStores, WhatDoesNotChangeIsNotWritten) {
    writeContent(file, "[Eq]\neq0 = 1 # as a whole number\n");
    const ino_t before = inodeOf(file);
    store.set(key("Eq"), "eq0", 0x3F800000U);
    store.erase(key("Eq"), "eq1");
    EXPECT_EQ(inodeOf(file), before);
    EXPECT_FALSE(fs::exists(folder / "settings.toml.lock"));

    writeDefaults(store);
    const ino_t withDefaults = inodeOf(file);
    EXPECT_NE(withDefaults, before);
    writeDefaults(store);
    EXPECT_EQ(inodeOf(file), withDefaults);
}

TEST_F(TomlStores, BatchIsOneWrite) {
    int renames = 0;
    TomlStore::Options options;
    options.afterStep = [&renames](FileStep step) { renames += step == FileStep::renamed; };
    TomlStore counting{file, options};
    writeDefaults(counting);
    EXPECT_EQ(renames, 1);
    TomlStore other{file};
    EXPECT_EQ(other.values(key("Eq")).size(), 108U);
}

TEST_F(TomlStores, ChangesOfOthersAreSeen) {
    EXPECT_EQ(eq("headroom"), std::nullopt);
    writeContent(file, "[Eq]\nheadroom = 1.0\n");
    EXPECT_EQ(eq("headroom"), 0x3F800000U);
    TomlStore other{file};
    for (std::uint32_t i = 0; i < 200; ++i) { // files of one size, one right after the other
        other.set(key("Someone"), "count", 100 + i);
        ASSERT_EQ(store.dword(key("Someone"), "count"), 100 + i);
    }
    fs::remove(file);
    EXPECT_EQ(eq("headroom"), std::nullopt);
}

TEST_F(TomlStores, WritersInOneProcessLoseNothing) {
    TomlStore other{file};
    const auto write = [](TomlStore& to, const std::string& prefix) {
        for (std::uint32_t i = 0; i < 25; ++i)
            to.set(key("Someone"), prefix + std::to_string(i), i);
    };
    std::thread first{[&] { write(store, "a"); }};
    std::thread second{[&] { write(other, "b"); }};
    std::thread third{[&] { write(store, "c"); }};
    for (int i = 0; i < 50; ++i)
        store.values(key("Someone"));
    first.join();
    second.join();
    third.join();
    EXPECT_EQ(store.values(key("Someone")).size(), 75U);
    EXPECT_EQ(TomlStore{file}.values(key("Someone")).size(), 75U);
}

TEST_F(TomlStores, EveryFloatComesBackFromTheFile) {
    const std::uint32_t bits[] = {0x00000000, 0x80000000, 0x00000001, 0x80000001, 0x007FFFFF,
                                  0x00800000, 0x7F7FFFFF, 0xFF7FFFFF, 0x7F800000, 0xFF800000,
                                  0x7FC00000, 0xFFC00000, 0x3F6536A0, 0x3F24872F, 0x3F135008,
                                  0x3F36DB6E, 0x4B800001, 0x3DCCCCCD, 0x33D6BF95, 0x5F000000};
    {
        const SettingsBatch batch{store};
        for (std::size_t i = 0; i < std::size(bits); ++i)
            store.set(key("Eq"), "eq" + std::to_string(i), bits[i]);
    }
    TomlStore other{file};
    for (std::size_t i = 0; i < std::size(bits); ++i)
        EXPECT_EQ(other.dword(key("Eq"), "eq" + std::to_string(i)), bits[i]) << std::hex << bits[i];
}

TEST_F(TomlStores, BrokenFileIsKeptAside) {
    const std::string broken = "[Eq]\nheadroom = 1.0\nheadroom = 2.0\n";
    writeContent(file, broken);
    std::vector<BrokenFile> told;
    TomlStore::Options options;
    options.onBroken = [&told](const BrokenFile& what) { told.push_back(what); };
    TomlStore careful{file, options};

    EXPECT_EQ(careful.dword(key("Eq"), "headroom"), std::nullopt);
    EXPECT_EQ(contentOf(folder / "settings.toml.broken"), broken);
    EXPECT_EQ(contentOf(file), broken); // until there is something to write
    careful.set(key("Eq"), "headroom", 0x40400000U);
    EXPECT_EQ(contentOf(file), "[Eq]\nheadroom = 3.0\n");
    EXPECT_EQ(contentOf(folder / "settings.toml.broken"), broken);
    EXPECT_EQ(careful.dword(key("Eq"), "headroom"), 0x40400000U);

    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(told[0].file, file);
    EXPECT_EQ(told[0].keptAs, folder / "settings.toml.broken");
    EXPECT_EQ(told[0].error.line, 3);
}

TEST_F(TomlStores, FileThatBreaksLaterIsKeptAsideToo) {
    std::vector<BrokenFile> told;
    TomlStore::Options options;
    options.onBroken = [&told](const BrokenFile& what) { told.push_back(what); };
    TomlStore careful{file, options};
    for (const char* broken : {"first = \n", "second = \n"}) {
        writeContent(file, broken);
        careful.set(key("Eq"), "headroom", 0x40400000U);
        EXPECT_EQ(contentOf(folder / "settings.toml.broken"), broken);
        EXPECT_EQ(contentOf(file), "[Eq]\nheadroom = 3.0\n");
    }
    EXPECT_EQ(told.size(), 2U);
}

TEST_F(TomlStores, ReporterMayUseTheStore) {
    writeContent(file, "broken = \n");
    TomlStore* used = nullptr;
    int calls = 0;
    TomlStore::Options options;
    options.onBroken = [&](const BrokenFile&) {
        ++calls;
        used->set(key("Eq"), "headroom", 1U);
    };
    TomlStore careful{file, options};
    used = &careful;
    EXPECT_EQ(careful.dword(key("Eq"), "eqall"), std::nullopt);
    EXPECT_EQ(calls, 1);
}

TEST_F(TomlStores, WhatCanNotBeReadIsNotWritten) {
    fs::create_directory(file);
    std::vector<BrokenFile> told;
    TomlStore::Options options;
    options.onBroken = [&told](const BrokenFile& what) { told.push_back(what); };
    TomlStore careful{file, options};
    careful.set(key("Eq"), "headroom", 0x40400000U);
    EXPECT_FALSE(careful.flush());
    EXPECT_TRUE(fs::is_directory(file));
    EXPECT_EQ(careful.dword(key("Eq"), "headroom"), 0x40400000U);
    ASSERT_EQ(told.size(), 1U);
    EXPECT_TRUE(told[0].keptAs.empty());
}

TEST_F(TomlStores, WhatCanNotBeWrittenServesThisProcess) {
    const fs::path blocked = folder / "blocked";
    writeContent(blocked, "a file where the folder should be");
    TomlStore careful{blocked / "settings.toml"};
    writeDefaults(careful);
    EXPECT_EQ(careful.values(key("Eq")).size(), 108U);
    EXPECT_EQ(careful.dword(key("Eq"), "headroom"), 0x404CCCCDU);
    EXPECT_FALSE(careful.flush());

    fs::remove(blocked);
    EXPECT_TRUE(careful.flush());
    EXPECT_EQ(TomlStore{blocked / "settings.toml"}.values(key("Eq")).size(), 108U);
}

TEST_F(TomlStores, KeysOutsideOfTheRootAreIgnored) {
    store.set("Software\\Tolvane Developments\\Orvex\\Winamp\\Eq", "headroom", 1U);
    store.set("Software\\Other", "x", 1U);
    EXPECT_EQ(store.value("Software\\Other", "x"), std::nullopt);
    EXPECT_FALSE(store.exists("Software\\Other", "x"));
    EXPECT_FALSE(fs::exists(file));
}

} // namespace velorine
