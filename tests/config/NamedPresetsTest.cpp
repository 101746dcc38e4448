#include "config/NamedPresets.h"

#include "config/EmbeddedPreset.h"
#include "config/KeyTable.h"
#include "tests/config/Stores.h"

#include <gtest/gtest.h>

namespace velorine {

namespace {

using test::key;

constexpr std::uint32_t half = 0x3F000000;
constexpr std::uint32_t factoryHeadroom = 0x404CCCCD;
constexpr std::uint32_t factoryMagnitude = 0x3F36DB6E;

class NamedPresets : public testing::TestWithParam<test::StoreKind> {
protected:
    std::optional<std::uint32_t> eq(std::string_view name) { return store.dword(key("Eq"), name); }
    void setEq(std::string_view name, std::uint32_t bits) { store.set(key("Eq"), name, bits); }

    const test::StoresUnderTest under = GetParam().make();
    SettingsStore& store = *under.store;
    PresetStore& presets = *under.presets;
};

} // namespace

TEST(PresetNames, AreFileNamesEverywhere) {
    for (const char* good : {"Night", "late night 2", "Bass+", "caf\xC3\xA9", "a.b", "x"})
        EXPECT_TRUE(isPresetName(good)) << good;
    for (const char* bad : {"", ".hidden", "..", "a/b", "a\\b", " lead", "trail ", "trail.", "a:b",
                            "what?", "a\nb", "\"q\"", "a*", "<", "|", "\x7F"})
        EXPECT_FALSE(isPresetName(bad)) << bad;
    EXPECT_TRUE(isPresetName(std::string(100, 'a')));
    EXPECT_FALSE(isPresetName(std::string(101, 'a')));
}

TEST_P(NamedPresets, GiveBackTheWholeSection) {
    applyPreset(store);
    setEq("headroom", half);
    setEq("softclip", 0);
    setEq("enable", 0);
    ASSERT_TRUE(savePreset(presets, "late night", store));

    setEq("headroom", 0);
    setEq("softclip", 1);
    setEq("enable", 1);
    setEq("del0", half);
    ASSERT_TRUE(loadPreset(presets, "late night", store));
    EXPECT_EQ(eq("headroom"), half);
    EXPECT_EQ(eq("softclip"), 0U);
    EXPECT_EQ(eq("enable"), 0U);
    EXPECT_EQ(eq("del0"), 0x80000000U);
    EXPECT_EQ(presets.load("late night")->size(), 108U);
}

TEST_P(NamedPresets, AreListedSortedAndDeleted) {
    EXPECT_TRUE(presets.names().empty());
    for (const char* name : {"b", "a", "c d"})
        EXPECT_TRUE(savePreset(presets, name, store));
    EXPECT_EQ(presets.names(), (std::vector<std::string>{"a", "b", "c d"}));
    EXPECT_TRUE(presets.remove("b"));
    EXPECT_FALSE(presets.remove("b"));
    EXPECT_EQ(presets.names(), (std::vector<std::string>{"a", "c d"}));
    EXPECT_FALSE(presets.load("b"));
}

TEST_P(NamedPresets, SaveReplacesAll) {
    ASSERT_TRUE(presets.save("p", {{"lim0", 1}, {"lim1", 2}}));
    ASSERT_TRUE(presets.save("p", {{"lim1", 3}, {"enable", 1}}));
    const auto values = presets.load("p");
    ASSERT_TRUE(values);
    EXPECT_EQ(values->size(), 2U);
    setEq("lim0", half);
    ASSERT_TRUE(loadPreset(presets, "p", store));
    EXPECT_EQ(eq("lim1"), 3U);
}

TEST_P(NamedPresets, RefuseBadNames) {
    EXPECT_FALSE(savePreset(presets, "../settings", store));
    EXPECT_FALSE(presets.load("../settings"));
    EXPECT_FALSE(presets.remove("../settings"));
    EXPECT_FALSE(loadPreset(presets, "never saved", store));
}

TEST_P(NamedPresets, WhatAPresetLeavesOutIsTheFactorys) {
    ASSERT_TRUE(presets.save("part", {{"lim0", half}}));
    setEq("headroom", half);
    setEq("magnitude", half);
    ASSERT_TRUE(loadPreset(presets, "part", store));
    EXPECT_EQ(eq("lim0"), half);
    EXPECT_EQ(eq("headroom"), factoryHeadroom);
    EXPECT_EQ(eq("magnitude"), half);
}

TEST_P(NamedPresets, NoActivePresetIsTheFactoryStep) {
    EXPECT_EQ(activePreset(store), "");
    setEq("headroom", half);
    setEq("magnitude", half);
    EXPECT_TRUE(applyStartPresets(store, presets, activePreset(store)));
    EXPECT_EQ(eq("headroom"), factoryHeadroom);
    EXPECT_EQ(eq("magnitude"), half);
}

TEST_P(NamedPresets, ActivePresetFollowsTheFactoryStep) {
    setEq("headroom", half);
    setEq("magnitude", half);
    ASSERT_TRUE(savePreset(presets, "mine", store));
    setActivePreset(store, "mine");
    setEq("headroom", 0);
    setEq("eqall", 0);
    setEq("magnitude", 0);
    EXPECT_TRUE(applyStartPresets(store, presets, activePreset(store)));
    EXPECT_EQ(eq("headroom"), half);
    EXPECT_EQ(eq("eqall"), 0x3F800000U);
    EXPECT_EQ(eq("magnitude"), 0U); // the user's last one, as without a preset
}

TEST_P(NamedPresets, ActivePresetFillsWhatTheUserNeverHad) {
    ASSERT_TRUE(presets.save("mine", {{"magnitude", half}, {"enable", 0}}));
    EXPECT_TRUE(applyStartPresets(store, presets, "mine"));
    EXPECT_EQ(eq("magnitude"), half);
    EXPECT_EQ(eq("enable"), 0U);
}

TEST_P(NamedPresets, MissingActivePresetLeavesTheFactorys) {
    setEq("headroom", half);
    EXPECT_FALSE(applyStartPresets(store, presets, "gone"));
    EXPECT_EQ(eq("headroom"), factoryHeadroom);
    EXPECT_EQ(eq("magnitude"), factoryMagnitude);
}

TEST_P(NamedPresets, ForeignValuesOfAPresetStayOut) {
    ASSERT_TRUE(presets.save("odd", {{"lim0", half}, {"loudness", half}}));
    ASSERT_TRUE(loadPreset(presets, "odd", store));
    EXPECT_TRUE(applyStartPresets(store, presets, "odd"));
    EXPECT_EQ(eq("lim0"), half);
    EXPECT_FALSE(store.exists(key("Eq"), "loudness"));
}

INSTANTIATE_TEST_SUITE_P(Every, NamedPresets, testing::ValuesIn(test::storeKinds()),
                         [](const auto& kind) { return kind.param.name; });

} // namespace velorine
