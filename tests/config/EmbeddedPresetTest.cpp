#include "config/EmbeddedPreset.h"

#include "config/LayeredStore.h"
#include "config/NarrowText.h"
#include "tests/config/Stores.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <random>

namespace velorine {

namespace {

using test::key;

std::span<const std::byte> bytesOf(std::string_view text) {
    return std::as_bytes(std::span{text.data(), text.size()});
}

/// The tuning, row by row as its makers wrote it down.
std::map<std::string, std::uint32_t> tuning() {
    std::map<std::string, std::uint32_t> values;
    const auto put = [&values](const std::string& name, double value) {
        values[name] = std::bit_cast<std::uint32_t>(static_cast<float>(value));
    };
    for (int i = 0; i < 23; ++i)
        values["eq" + std::to_string(i)] = 0x3F800000;
    values["eq15"] = 0x3F6536A0;
    values["eq16"] = 0x3F24872F;
    for (const char* name : {"eq17", "eq18", "eq19", "eq20"})
        values[name] = 0x3F135008;
    for (int i = 0; i < 12; ++i)
        values["del" + std::to_string(i)] = 0x80000000;

    const double rows[7][9] = {
        {0, 50, 0.36, 0.14, 0.04, 0, 3, 0.04, -18},
        {75, 130, 0.5, 0.08, 0.04, 0, 3, 0.04, -18},
        {180, 220, 0.38, 0.08, 0.06, 0, 3, 0.04, -12},
        {250, 900, 0.48, 0.24, 0.04, 0, 3, -0.08, 0},
        {1500, 4500, 0.48, 0.18, 0.02, 0, 3, -0.1, -12},
        {12000, 14000, 0.26, 0.18, 0.02, 0, 3, 0.04, -6},
        {16000, 24000, 0.26, 0.18, 0.02, 0, 3, 0.04, -6},
    };
    for (int band = 0; band < 7; ++band) {
        const std::string b = std::to_string(band);
        const std::string names[9] = {"band" + b + "lo", "band" + b + "hi", "trans" + b + "0",
                                      "trans" + b + "1", "trans" + b + "2", "atten" + b,
                                      "lim" + b,         "compr" + b,       "comprlim" + b};
        for (int column = 0; column < 9; ++column)
            put(names[column], rows[band][column]);
    }
    put("atten7", -3);
    put("lim7", 0);
    put("compr7", 0.8);
    put("comprlim7", -8.5);
    put("eqall", 1);
    values["headroom"] = 0x404CCCCD;
    values["magnitude"] = 0x3F36DB6E;
    values["enabletrans"] = values["softclip"] = values["enable"] = 1;
    return values;
}

std::map<std::string, std::uint32_t> eqIn(SettingsStore& store) {
    std::map<std::string, std::uint32_t> values;
    for (const SettingsEntry& entry : store.values(key("Eq")))
        values[entry.name] = std::get<std::uint32_t>(entry.value);
    return values;
}

class Preset : public testing::TestWithParam<test::StoreKind> {
protected:
    const test::StoresUnderTest under = GetParam().make();
    SettingsStore& store = *under.store;
};

} // namespace

TEST(PresetText, IsTheResourceByteForByte) {
    std::ifstream file{VELORINE_PRESET_FILE, std::ios::binary};
    const std::string resource{std::istreambuf_iterator<char>{file}, {}};
    const auto text = presetText();
    ASSERT_EQ(text.size(), 5562U);
    ASSERT_EQ(resource.size(), text.size());
    EXPECT_EQ(std::memcmp(resource.data(), text.data(), text.size()), 0);
}

TEST(PresetText, IsUtf16InLinesWithoutBlankOnes) {
    const auto text = presetText();
    EXPECT_EQ(text[0], std::byte{0xFF});
    EXPECT_EQ(text[1], std::byte{0xFE});
    const std::string narrow = narrowText(text);
    EXPECT_TRUE(narrow.starts_with("Windows Registry Editor Version 5.00\r\n"
                                   "[HKEY_CURRENT_USER\\Software\\Tolvane Developments"
                                   "\\Orvex\\Winamp\\Eq]\r\n\""));
    EXPECT_EQ(std::count(narrow.begin(), narrow.end(), '\n'), 110);
    EXPECT_EQ(std::count(narrow.begin(), narrow.end(), '\r'), 109);
    EXPECT_EQ(narrow.find("\r\n\r\n"), std::string::npos);
    EXPECT_TRUE(narrow.ends_with("\n") && !narrow.ends_with("\r\n"));
}

TEST_P(Preset, WritesTheTuningBitByBit) {
    applyPreset(store);
    EXPECT_EQ(eqIn(store), tuning());
    EXPECT_EQ(store.subkeys(settingsRoot), (std::vector<std::string>{"Eq"}));
}

TEST_P(Preset, UsersEnableAndMagnitudeAloneSurvive) {
    std::mt19937 random{8};
    for (int round = 0; round < 10; ++round) {
        auto expected = tuning();
        {
            const SettingsBatch batch{store};
            for (const auto& [name, factory] : expected)
                store.set(key("Eq"), name, static_cast<std::uint32_t>(random() & 0x7F7FFFFF));
            store.set(key("Eq"), "enable", static_cast<std::uint32_t>(round % 2));
        }
        expected["enable"] = static_cast<std::uint32_t>(round % 2);
        expected["magnitude"] = store.dword(key("Eq"), "magnitude").value();
        applyPreset(store);
        ASSERT_EQ(eqIn(store), expected);
    }
}

TEST_P(Preset, IsInForceOverAStoreThatIsOnlyRead) {
    store.set(key("Eq"), "headroom", 0U);
    store.set(key("Eq"), "magnitude", 0x3F000000U);
    CopyOnWriteStore shielded{store};
    applyPreset(shielded);
    auto expected = tuning();
    expected["magnitude"] = 0x3F000000;
    EXPECT_EQ(eqIn(shielded), expected);
    EXPECT_EQ(store.values(key("Eq")).size(), 2U);
    EXPECT_EQ(store.dword(key("Eq"), "headroom"), 0U);
}

TEST_P(Preset, StandsBelowAnOverlay) {
    OverlayStore overlay{store};
    overlay.put(key("Eq"), "headroom", 0U);
    overlay.put(key("Eq"), "enable", 0U);
    applyPreset(store);
    EXPECT_EQ(eqIn(store), tuning());
    auto expected = tuning();
    expected["headroom"] = 0;
    expected["enable"] = 0;
    EXPECT_EQ(eqIn(overlay), expected);
}

TEST_P(Preset, OtherSectionsStayAsTheyAre) {
    store.set(key("General"), "enable", 0U);
    store.set(key("Mixer"), "antidelay", 0x3F000000U);
    applyPreset(store);
    EXPECT_EQ(store.dword(key("General"), "enable"), 0U);
    EXPECT_EQ(store.dword(key("Mixer"), "antidelay"), 0x3F000000U);
}

TEST_P(Preset, TextWithoutByteOrderMarkIsNarrow) {
    applyPreset(store, bytesOf("[HKEY]\n\"lim0\"=dword:3f800000\r\n\"lim1\"=dword:80000000"));
    EXPECT_EQ(store.dword(key("Eq"), "lim0"), 0x3F800000U);
    EXPECT_EQ(store.dword(key("Eq"), "lim1"), 0x80000000U);
    EXPECT_EQ(store.values(key("Eq")).size(), 2U);
}

TEST_P(Preset, TextMayEndAnywhere) {
    const std::string whole = "\"lim0\"=dword:3f800000\n\"lim1\"=dword:3f800000\n";
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        for (const char* name : {"lim0", "lim1"})
            store.erase(key("Eq"), name);
        const SettingsBatch batch{store};
        applyPreset(store, bytesOf(std::string_view{whole}.substr(0, length)));
        // The first digit stands behind "lim0"=dword: , 13 characters.
        EXPECT_EQ(store.exists(key("Eq"), "lim0"), length > 13) << length;
        EXPECT_EQ(store.exists(key("Eq"), "lim1"), length > 22 + 13) << length;
        EXPECT_LE(store.values(key("Eq")).size(), 2U);
    }
}

INSTANTIATE_TEST_SUITE_P(Every, Preset, testing::ValuesIn(test::storeKinds()),
                         [](const auto& kind) { return kind.param.name; });

} // namespace velorine
