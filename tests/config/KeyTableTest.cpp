#include "config/KeyTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <map>
#include <set>

namespace velorine {

namespace {

float defaultOf(std::string_view name) {
    const SettingKey* const key = findSetting(name);
    return key ? std::bit_cast<float>(key->bits) : -1.0F;
}

} // namespace

TEST(KeyTable, HoldsEverySettingOnce) {
    std::map<std::string, int> counts;
    std::set<std::pair<std::string, std::string>> seen;
    for (const SettingKey& key : settingKeys()) {
        ++counts[key.section];
        EXPECT_TRUE(seen.emplace(key.section, key.name).second) << key.section << "/" << key.name;
        EXPECT_FALSE(key.meaning.empty()) << key.name;
    }
    EXPECT_EQ(counts, (std::map<std::string, int>{{"General", 10},
                                                  {"Output", 3},
                                                  {"Mixer", 5},
                                                  {"Resample", 8},
                                                  {"Limiter", 1},
                                                  {"WaDsp", 1},
                                                  {"Eq", 108}}));
}

TEST(KeyTable, FindsBySectionAndName) {
    const SettingKey* const key = findSetting("General/Fade on seek");
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(key, findSetting("General", "Fade on seek"));
    EXPECT_EQ(key->kind, SettingKind::boolean);
    EXPECT_EQ(key->key(), "Software\\Tolvane Developments\\Velorine\\Winamp\\General");
    EXPECT_EQ(findSetting("General/fade on seek"), nullptr);
    EXPECT_EQ(findSetting("Eq/eq23"), nullptr);
    EXPECT_EQ(findSetting("headroom"), nullptr);
}

TEST(KeyTable, DefaultsAreThoseOfTheEngine) {
    EXPECT_EQ(findSetting("General/flush_ms")->bits, 80U);
    EXPECT_EQ(findSetting("General/Null Output")->bits, 0U);
    EXPECT_EQ(findSetting("General/Audio Device")->defaultValue(), SettingsValue{std::string{}});
    EXPECT_EQ(findSetting("Output/bits")->bits, 1U);
    EXPECT_EQ(findSetting("Resample/accuracy")->bits, 16U);
    EXPECT_EQ(findSetting("Resample/tableup")->bits, 32U);
    EXPECT_EQ(findSetting("Limiter/enable")->bits, 1U);
    EXPECT_EQ(findSetting("WaDsp/enable")->bits, 0U);
    EXPECT_EQ(defaultOf("Mixer/antidelay"), 0.05F);
    EXPECT_EQ(defaultOf("Resample/srate"), 48000.0F);
    EXPECT_EQ(defaultOf("Resample/stopband"), 222.0F);
    EXPECT_NEAR(defaultOf("General/Beep Volume"), 0.2511886F, 1e-7F); // -12 dB
}

TEST(KeyTable, EqMeaningsNameTheNodeOfTheKey) {
    EXPECT_EQ(findSetting("Eq/eq22")->meaning, "gain at 20 Hz, linear");
    EXPECT_EQ(findSetting("Eq/eq21")->meaning, "gain at 35 Hz, linear");
    EXPECT_EQ(findSetting("Eq/eq0")->meaning, "gain at 50 Hz, linear");
    EXPECT_EQ(findSetting("Eq/eq20")->meaning, "gain at 20000 Hz, linear");
    EXPECT_EQ(findSetting("Eq/del0")->meaning, "delay at 20 Hz, seconds");
    EXPECT_EQ(findSetting("Eq/del11")->meaning, "delay at 20000 Hz, seconds");
}

} // namespace velorine
