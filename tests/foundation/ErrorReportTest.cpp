#include "foundation/ErrorReport.h"

#include "tests/foundation/ErrorList.h"
#include "tests/support/ErrorReader.h"

#include <gtest/gtest.h>

#include <cstring>

namespace velorine::test {

namespace {

TEST(ErrorReport, WarningIsFormattedAndEndsInANewline) {
    ErrorList list;
    errorBox("%s of %d bytes", "a page", 4096);
    ASSERT_EQ(list.texts.size(), 1u);
    EXPECT_EQ(list.texts[0], "a page of 4096 bytes\n");
}

// 1500 bytes fit; of more the first 1499 are kept.
TEST(ErrorReport, LongTextIsCut) {
    struct Case {
        std::size_t given;
        std::size_t shown;
    };
    for (const Case c :
         {Case{0, 0}, Case{1499, 1499}, Case{1500, 1500}, Case{1501, 1499}, Case{5000, 1499}}) {
        ErrorList list;
        errorBox("%s", std::string(c.given, 'x').c_str());
        ASSERT_EQ(list.texts.size(), 1u);
        EXPECT_EQ(list.texts[0], std::string(c.shown, 'x') + "\n") << c.given << " bytes";
    }
}

TEST(ErrorReport, FatalThrowsTheTextItself) {
    ErrorList list;
    const char* const text = "MemAlloc : malloc() failed";
    try {
        fatal(text);
        FAIL();
    } catch (const char* caught) {
        EXPECT_EQ(caught, text);
    }
    EXPECT_TRUE(list.texts.empty()); // who catches it shows it
}

TEST(ErrorReportDeathTest, EndShowsTheTextAndLeavesWith1) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            readErrorsAloud();
            endWith("nothing to play on");
        },
        testing::ExitedWithCode(1), "velorine: nothing to play on");
}

} // namespace

} // namespace velorine::test
