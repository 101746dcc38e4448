#include "config/SettingsStore.h"

#include "tests/config/Stores.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace velorine {

namespace {

using test::key;

constexpr std::string_view root = "Software\\Tolvane Developments\\Velorine\\Winamp";

class SettingsStores : public testing::TestWithParam<test::StoreKind> {
protected:
    const test::StoresUnderTest under = GetParam().make();
    SettingsStore& store = *under.store;
};

std::vector<SettingsEntry> sorted(std::vector<SettingsEntry> entries) {
    std::sort(entries.begin(), entries.end(),
              [](const SettingsEntry& a, const SettingsEntry& b) { return a.name < b.name; });
    return entries;
}

} // namespace

TEST(KeyPath, JoinsByOneBackslash) {
    EXPECT_EQ(keyPath(root, "Eq"), std::string{root} + "\\Eq");
    EXPECT_EQ(keyPath(root, ""), root);
    EXPECT_EQ(keyPath(root, "Eq\\"), std::string{root} + "\\Eq");
    EXPECT_EQ(keyPath(std::string{root} + "\\", "Eq"), std::string{root} + "\\Eq");
}

TEST(KeyPath, SectionIsWhatStandsBelowTheRoot) {
    EXPECT_EQ(sectionOf(key("Eq")), "Eq");
    EXPECT_EQ(sectionOf(key("Presets\\Night")), "Presets\\Night");
    EXPECT_EQ(sectionOf(root), "");
    EXPECT_EQ(sectionOf(std::string{root} + "2\\Eq"), std::nullopt);
    EXPECT_EQ(sectionOf("Software\\Other"), std::nullopt);
}

TEST_P(SettingsStores, GiveBackWhatWasSet) {
    store.set(key("Eq"), "headroom", 0x404CCCCDU);
    store.set(key("General"), "Audio Device", std::string{"Built-in \"Audio\" \\ 2"});
    EXPECT_EQ(store.dword(key("Eq"), "headroom"), 0x404CCCCDU);
    EXPECT_EQ(store.text(key("General"), "Audio Device"), "Built-in \"Audio\" \\ 2");
}

TEST_P(SettingsStores, KnowNothingThatWasNotSet) {
    store.set(key("Eq"), "headroom", 1U);
    EXPECT_EQ(store.value(key("Eq"), "eqall"), std::nullopt);
    EXPECT_EQ(store.value(key("Mixer"), "headroom"), std::nullopt);
}

TEST_P(SettingsStores, AnswerNoOtherType) {
    store.set(key("Eq"), "headroom", std::string{"loud"});
    store.set(key("General"), "Audio Device", 7U);
    EXPECT_EQ(store.dword(key("Eq"), "headroom"), std::nullopt);
    EXPECT_EQ(store.text(key("General"), "Audio Device"), std::nullopt);
    EXPECT_TRUE(store.exists(key("Eq"), "headroom"));
}

TEST_P(SettingsStores, ExistsNeedsKeyAndValue) {
    EXPECT_FALSE(store.exists(key("Eq"), "enable"));
    store.set(key("Eq"), "magnitude", 1U);
    EXPECT_FALSE(store.exists(key("Eq"), "enable"));
    store.set(key("Eq"), "enable", 0U);
    EXPECT_TRUE(store.exists(key("Eq"), "enable"));
}

TEST_P(SettingsStores, EraseTakesOneValueOut) {
    store.set(key("Eq"), "lim0", 1U);
    store.set(key("Eq"), "lim1", 2U);
    store.erase(key("Eq"), "lim0");
    store.erase(key("Eq"), "never there");
    EXPECT_FALSE(store.exists(key("Eq"), "lim0"));
    EXPECT_EQ(store.dword(key("Eq"), "lim1"), 2U);
}

TEST_P(SettingsStores, EnumerateASection) {
    store.set(key("Eq"), "lim1", 0x40400000U);
    store.set(key("Eq"), "enable", 1U);
    store.set(key("Eq"), "lim0", 5U);
    store.set(key("Eq"), "lim0", 6U);
    store.set(key("General"), "Audio Device", std::string{"Speaker"});
    EXPECT_EQ(sorted(store.values(key("Eq"))),
              (std::vector<SettingsEntry>{{"enable", 1U}, {"lim0", 6U}, {"lim1", 0x40400000U}}));
    EXPECT_EQ(store.values(key("General")),
              (std::vector<SettingsEntry>{{"Audio Device", std::string{"Speaker"}}}));
    EXPECT_TRUE(store.values(key("Mixer")).empty());
}

TEST_P(SettingsStores, EnumerateSectionsOnce) {
    store.set(key("Output"), "bits", 1U);
    store.set(key("Eq"), "enable", 1U);
    store.set(key("Presets\\B"), "enable", 1U);
    store.set(key("Presets\\A"), "enable", 1U);
    store.set(key("Presets2"), "enable", 1U);
    EXPECT_EQ(store.subkeys(root),
              (std::vector<std::string>{"Eq", "Output", "Presets", "Presets2"}));
    EXPECT_EQ(store.subkeys(key("Presets")), (std::vector<std::string>{"A", "B"}));
}

TEST_P(SettingsStores, EraseKeyTakesAllItsValues) {
    store.set(key("Presets\\A"), "enable", 1U);
    store.set(key("Presets\\A"), "magnitude", 1U);
    store.set(key("Presets\\B"), "enable", 1U);
    store.eraseKey(key("Presets\\A"));
    EXPECT_TRUE(store.values(key("Presets\\A")).empty());
    EXPECT_EQ(store.subkeys(key("Presets")), (std::vector<std::string>{"B"}));
}

TEST_P(SettingsStores, BatchShowsItsValuesAtOnce) {
    const SettingsBatch batch{store};
    store.set(key("Eq"), "lim0", 1U);
    {
        const SettingsBatch inner{store};
        store.set(key("Eq"), "lim1", 2U);
        store.set(key("Eq"), "lim0", 3U);
    }
    EXPECT_EQ(store.dword(key("Eq"), "lim0"), 3U);
    EXPECT_EQ(store.dword(key("Eq"), "lim1"), 2U);
    store.erase(key("Eq"), "lim1");
    EXPECT_FALSE(store.exists(key("Eq"), "lim1"));
    EXPECT_EQ(store.values(key("Eq")), (std::vector<SettingsEntry>{{"lim0", 3U}}));
}

TEST_P(SettingsStores, FlushSaysThatAllIsKept) {
    store.set(key("Eq"), "lim0", 1U);
    EXPECT_TRUE(store.flush());
}

INSTANTIATE_TEST_SUITE_P(Every, SettingsStores, testing::ValuesIn(test::storeKinds()),
                         [](const auto& kind) { return kind.param.name; });

} // namespace velorine
