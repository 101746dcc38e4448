#include "config/SettingText.h"

#include "config/MemoryStore.h"
#include "tests/config/Stores.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>

namespace velorine {

namespace {

std::string printed(float value) {
    return printFloat(std::bit_cast<std::uint32_t>(value));
}

} // namespace

TEST(SettingText, FloatsPrintAsTheShortestDecimal) {
    EXPECT_EQ(printed(0.1F), "0.1");
    EXPECT_EQ(printed(3.2F), "3.2");
    EXPECT_EQ(printed(48000.0F), "48000.0");
    EXPECT_EQ(printed(1.0F), "1.0");
    EXPECT_EQ(printed(-0.0F), "-0.0");
    EXPECT_EQ(printed(0.0F), "0.0");
    EXPECT_EQ(printed(1e-45F), "1e-45");
    EXPECT_EQ(printed(3.4028235e38F), "3.4028235e+38");
    EXPECT_EQ(printFloat(0x3F6536A0), "0.89536476"); // seven digits would be one bit off
    EXPECT_EQ(printFloat(0x7F800000), "inf");
    EXPECT_EQ(printFloat(0xFF800000), "-inf");
    EXPECT_EQ(printFloat(0x7FC00000), "nan");
    EXPECT_EQ(printFloat(0xFFC00000), "-nan");
}

TEST(SettingText, EveryFloatReadsBackToItsBits) {
    std::mt19937 random{12};
    for (int i = 0; i < 200000; ++i) {
        const auto bits = static_cast<std::uint32_t>(random());
        if (std::isnan(std::bit_cast<float>(bits))) continue;
        ASSERT_EQ(parseFloat(printFloat(bits)), bits) << std::hex << bits;
    }
    for (const std::uint32_t bits :
         {0x80000000U, 0x00000001U, 0x807FFFFFU, 0x7F800000U, 0xFF800000U, 0x7FC00000U, 0xFFC00000U,
          0x3F6536A0U, 0x3F24872FU, 0x3F135008U, 0x3F36DB6EU})
        EXPECT_EQ(parseFloat(printFloat(bits)), bits);
}

TEST(SettingText, FloatsMayBeWrittenAsWholeNumbers) {
    EXPECT_EQ(parseFloat("1"), 0x3F800000U);
    EXPECT_EQ(parseFloat("+1.5"), 0x3FC00000U);
    EXPECT_EQ(parseFloat("-2e1"), 0xC1A00000U);
    EXPECT_EQ(parseFloat("1e-60"), 0U);
    EXPECT_EQ(parseFloat("-1e-60"), 0x80000000U);
    EXPECT_EQ(parseFloat("1e39"), std::nullopt);
    EXPECT_EQ(parseFloat("1,5"), std::nullopt);
    EXPECT_EQ(parseFloat("1.5x"), std::nullopt);
    EXPECT_EQ(parseFloat(""), std::nullopt);
    EXPECT_EQ(parseFloat("+-1"), std::nullopt);
    EXPECT_EQ(parseFloat("nan(1)"), std::nullopt);
}

TEST(SettingText, AssignmentsTakeTheKeysKind) {
    const auto value = [](std::string_view text) {
        const auto parsed = parseAssignment(text);
        const auto* const assignment = std::get_if<SettingAssignment>(&parsed);
        return assignment ? std::optional{assignment->value} : std::nullopt;
    };
    EXPECT_EQ(value("Eq/headroom=3"), SettingsValue{0x40400000U});
    EXPECT_EQ(value("Eq/softclip=off"), SettingsValue{0U});
    EXPECT_EQ(value("Output/bits=-1"), SettingsValue{0xFFFFFFFFU});
    EXPECT_EQ(value("General/Fade on seek=true"), SettingsValue{1U});
    EXPECT_EQ(value("General/Audio Device=a=b"), SettingsValue{std::string{"a=b"}});
    EXPECT_EQ(value("General/Audio Device="), SettingsValue{std::string{}});
    EXPECT_EQ(value("Output/bits=1.5"), std::nullopt);
    EXPECT_EQ(value("Output/bits=4294967296"), std::nullopt);
    EXPECT_EQ(value("Eq/softclip=2"), std::nullopt);
    EXPECT_EQ(value("Eq/headroom"), std::nullopt);
    EXPECT_EQ(value("Eq/loudness=1"), std::nullopt);
}

TEST(SettingText, AssignmentErrorsNameWhatIsWrong) {
    const auto error = [](std::string_view text) {
        return std::get<std::string>(parseAssignment(text));
    };
    EXPECT_NE(error("Eq/headroom=loud").find("Eq/headroom takes a number, not 'loud'"),
              std::string::npos);
    EXPECT_NE(error("Eq/loudness=1").find("'Eq/loudness'"), std::string::npos);
    EXPECT_NE(error("Eq/headroom").find("SECTION/KEY=VALUE"), std::string::npos);
}

TEST(SettingText, PrintedSettingsParseAgain) {
    for (const SettingKey& key : settingKeys())
        EXPECT_EQ(parseSetting(key, printSetting(key, key.defaultValue())), key.defaultValue())
            << key.section << "/" << key.name;
}

TEST(SettingText, SettingOfTheWrongTypeIsTheDefault) {
    MemoryStore store;
    const SettingKey& headroom = *findSetting("Eq/headroom");
    EXPECT_EQ(settingIn(store, headroom), SettingsValue{0x404CCCCDU});
    store.set(test::key("Eq"), "headroom", std::string{"loud"});
    EXPECT_EQ(settingIn(store, headroom), SettingsValue{0x404CCCCDU});
    store.set(test::key("Eq"), "headroom", 0U);
    EXPECT_EQ(settingIn(store, headroom), SettingsValue{0U});
}

} // namespace velorine
