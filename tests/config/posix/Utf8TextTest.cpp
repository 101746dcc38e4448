#include "config/NarrowText.h"

#include <gtest/gtest.h>

#include <random>

namespace velorine {

TEST(Utf8Text, MovesToUtf16AndBack) {
    const std::string narrow = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xB5";
    const std::u16string wide = u"a\u00E9\u20AC\xD83C\xDFB5";
    EXPECT_EQ(utf16FromNarrow(narrow), wide);
    EXPECT_EQ(narrowFromUtf16(wide), narrow);
    EXPECT_EQ(utf16FromNarrow(std::string("a\0b", 3)), std::u16string(u"a\0b", 3));
}

TEST(Utf8Text, ReplacesWhatIsMalformed) {
    EXPECT_EQ(utf16FromNarrow("a\xFFz"), u"a\uFFFDz");
    EXPECT_EQ(utf16FromNarrow("\xC3"), u"\uFFFD");
    EXPECT_EQ(utf16FromNarrow("\xC3z"), u"\uFFFDz");
    EXPECT_EQ(utf16FromNarrow("\xC0\x80"), u"\uFFFD\uFFFD");           // too long for a zero
    EXPECT_EQ(utf16FromNarrow("\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD"); // half of a pair
    EXPECT_EQ(utf16FromNarrow("\xF4\x90\x80\x80"), u"\uFFFD\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(narrowFromUtf16(u"\xD83Cz"), "\xEF\xBF\xBDz");
    EXPECT_EQ(narrowFromUtf16(u"\xDFB5"), "\xEF\xBF\xBD");
}

TEST(Utf8Text, IsSoundWhateverComesIn) {
    std::mt19937 random{3};
    for (int round = 0; round < 2000; ++round) {
        std::string bytes(random() % 12, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random() % 3 ? 0x80 + random() % 128 : random());
        const std::string sound = narrowFromUtf16(utf16FromNarrow(bytes));
        ASSERT_EQ(narrowFromUtf16(utf16FromNarrow(sound)), sound);
    }
}

} // namespace velorine
