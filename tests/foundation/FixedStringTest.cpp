#include "foundation/FixedString.h"

#include <gtest/gtest.h>

#include <string>

namespace velorine::test {

namespace {

TEST(FixedString, BeginsEmpty) {
    const FixedString text;
    EXPECT_TRUE(text.empty());
    EXPECT_STREQ(text.c_str(), "");
    EXPECT_TRUE(text.storedInline());
}

TEST(FixedString, StaysInlineUpTo25BytesWithItsZero) {
    for (const std::size_t length : {0u, 1u, 23u, 24u, 25u, 26u, 27u, 28u, 1000u}) {
        const std::string given(length, 'q');
        const FixedString text{given};
        EXPECT_EQ(text.storedInline(), length + 1 <= 25) << length;
        EXPECT_EQ(text.view(), given);
        EXPECT_EQ(text.c_str()[length], '\0');
        EXPECT_EQ(text == given, true);
    }
}

TEST(FixedString, ChangesPlacesBothWays) {
    FixedString text{"short"};
    text = std::string(100, 'l');
    EXPECT_FALSE(text.storedInline());
    text = "short again";
    EXPECT_TRUE(text.storedInline());
    EXPECT_EQ(text.view(), "short again");
    text = "";
    EXPECT_TRUE(text.empty());
}

TEST(FixedString, CopiesAreTheirOwn) {
    FixedString text{std::string(40, 'a')};
    const FixedString copy{text};
    text = "b";
    EXPECT_EQ(copy.view(), std::string(40, 'a'));
    FixedString assigned;
    assigned = copy;
    assigned = *&assigned;
    EXPECT_EQ(assigned.view(), std::string(40, 'a'));
    EXPECT_NE(assigned.c_str(), copy.c_str());
}

TEST(FixedString, MayBeGivenAPartOfItself) {
    FixedString text{std::string(30, 'a') + "tail"};
    text = text.view().substr(30);
    EXPECT_EQ(text.view(), "tail");
    text = text.view().substr(1);
    EXPECT_EQ(text.view(), "ail");
}

TEST(FixedString, KeepsZeroBytesInside) {
    const FixedString text{std::string_view{"a\0b", 3}};
    EXPECT_EQ(text.view().size(), 3u);
}

} // namespace

} // namespace velorine::test
