#include "player/Text.h"

#include <gtest/gtest.h>

namespace velorine {
namespace {

TEST(Text, ClockCountsHoursOnlyWhereThereAreAny) {
    EXPECT_EQ(clockText(0), "0:00");
    EXPECT_EQ(clockText(-5), "0:00");
    EXPECT_EQ(clockText(59'999), "0:59");
    EXPECT_EQ(clockText(3'599'000), "59:59");
    EXPECT_EQ(clockText(3'723'000), "1:02:03");
    EXPECT_EQ(clockText(360'000'000), "100:00:00");
}

TEST(Text, ColumnsAreCharactersNotBytes) {
    EXPECT_EQ(fitColumns("Öäü", 2), "Öä");
    EXPECT_EQ(fitColumns("Öäü", 3), "Öäü");
    EXPECT_EQ(fitColumns("abc", 0), "");
    EXPECT_EQ(fitColumns("abc", 9), "abc");
}

TEST(Text, PrintableKeepsLettersOfAnyLanguage) {
    EXPECT_EQ(printable("Ö\033[1m\x7f\r"), "Ö?[1m??");
}

TEST(Text, BaseNameIsTheLastPart) {
    EXPECT_EQ(baseName("/music/a/b.flac"), "b.flac");
    EXPECT_EQ(baseName("b.flac"), "b.flac");
}

} // namespace
} // namespace velorine
