#include "config/posix/TomlText.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace velorine {

namespace {

std::string edited(const std::string& text, std::vector<TomlEdit> edits) {
    return editToml(text, edits);
}

/// Integers of a text by "section/name".
std::map<std::string, long long> integersIn(std::string_view text) {
    std::map<std::string, long long> found;
    const auto parsed = readToml(text);
    if (!std::holds_alternative<std::vector<TomlValue>>(parsed)) return {{"broken", -1}};
    for (const TomlValue& value : std::get<std::vector<TomlValue>>(parsed))
        if (value.kind == TomlValue::Kind::integer)
            found[value.section + "/" + value.name] = value.integer;
    return found;
}

} // namespace

TEST(TomlText, ValuesComeWithTheirPlace) {
    const auto parsed = readToml("# head\ntop = 1\n\n[Eq]\n  headroom = 3.2 # dB\n"
                                 "\"Fad\xC3\xA9 on\" = true\n[General]\nd = \"a\\nb\"\n"
                                 "odd = [1, 2]\ndate = 1979-05-27\nf = 1_000.5\nn = -nan\n");
    const auto& values = std::get<std::vector<TomlValue>>(parsed);
    ASSERT_EQ(values.size(), 8U);
    EXPECT_EQ(values[0].section, "");
    EXPECT_EQ(values[0].integer, 1);
    EXPECT_EQ(values[1].section, "Eq");
    EXPECT_EQ(values[1].name, "headroom");
    EXPECT_EQ(values[1].kind, TomlValue::Kind::real);
    EXPECT_EQ(values[1].content, "3.2");
    EXPECT_EQ(values[1].line, 5);
    EXPECT_EQ(values[1].column, 14);
    EXPECT_EQ(values[2].name, "Fad\xC3\xA9 on");
    EXPECT_EQ(values[2].kind, TomlValue::Kind::boolean);
    EXPECT_EQ(values[2].integer, 1);
    EXPECT_EQ(values[2].column, 13); // in characters, of which e acute is one
    EXPECT_EQ(values[3].content, "a\nb");
    EXPECT_EQ(values[4].kind, TomlValue::Kind::other);
    EXPECT_EQ(values[5].kind, TomlValue::Kind::other);
    EXPECT_EQ(values[6].content, "1000.5");
    EXPECT_EQ(values[7].content, "-nan");
}

TEST(TomlText, ErrorsComeWithTheirPlace) {
    const auto parsed = readToml("[Eq]\nheadroom = \n");
    const auto& error = std::get<TomlError>(parsed);
    EXPECT_EQ(error.line, 2);
    EXPECT_EQ(error.column, 12);
    EXPECT_FALSE(error.reason.empty());
}

TEST(TomlText, EndlessLinesAreRefused) {
    std::string dots = "a = 1\nb";
    for (int i = 0; i < 200000; ++i)
        dots += ".b";
    const auto parsed = readToml(dots + " = 1\n");
    ASSERT_TRUE(std::holds_alternative<TomlError>(parsed));
    EXPECT_EQ(std::get<TomlError>(parsed).line, 2);
}

TEST(TomlText, EditsLeaveAllElseAsItWasTyped) {
    EXPECT_EQ(edited("# mine\n[Eq]  # sound\nheadroom   =  3.2  # dB\nodd = [1,\n 2]\n\n"
                     "[General]\nbeep = true\n",
                     {{"Eq", "headroom", "4.0"}, {"General", "beep", "false"}}),
              "# mine\n[Eq]  # sound\nheadroom   =  4.0  # dB\nodd = [1,\n 2]\n\n"
              "[General]\nbeep = false\n");
}

TEST(TomlText, PlacesCountCharactersNotBytes) {
    const std::string text = "\"\xC3\xA9\xF0\x9F\x8E\xB5\" = 1.5 # \xC3\xA9\n";
    const auto parsed = readToml(text);
    EXPECT_EQ(std::get<std::vector<TomlValue>>(parsed)[0].content, "1.5");
    EXPECT_EQ(edited(text, {{"", "\xC3\xA9\xF0\x9F\x8E\xB5", "2.25"}}),
              "\"\xC3\xA9\xF0\x9F\x8E\xB5\" = 2.25 # \xC3\xA9\n");
}

TEST(TomlText, NewValuesFollowThoseOfTheirTable) {
    EXPECT_EQ(edited("[Eq]\n  a = 1 # one\n\n# next\n[General]\n",
                     {{"Eq", "b", "2"}, {"General", "c d", "3"}, {"Eq", "e", "4"}}),
              "[Eq]\n  a = 1 # one\n  b = 2\n  e = 4\n\n# next\n[General]\n\"c d\" = 3\n");
    EXPECT_EQ(edited("", {{"Eq", "a", "1"}, {"General", "b", "2"}}),
              "[Eq]\na = 1\n\n[General]\nb = 2\n");
    EXPECT_EQ(edited("[Eq]\na = 1", {{"General", "c", "3"}, {"Eq", "b", "2"}}),
              "[Eq]\na = 1\nb = 2\n\n\n[General]\nc = 3\n");
    EXPECT_EQ(edited("[Eq]\na = [ # first\n 1 ]\n[Eq.more]\nx = 1\n", {{"Eq", "b", "2"}}),
              "[Eq]\na = [ # first\n 1 ]\nb = 2\n[Eq.more]\nx = 1\n");
    EXPECT_EQ(edited("[Eq]\r\na = 1\r\n", {{"Eq", "a", "7"}}), "[Eq]\r\na = 7\r\n");
    EXPECT_EQ(edited("[Eq]\n", {{"", "top", "7"}}), "top = 7\n[Eq]\n");
}

TEST(TomlText, RemovedValuesTakeTheirLine) {
    EXPECT_EQ(edited("[Eq]\na = 1\nb = [ 1,\n 2 ] # two\nc = 3",
                     {{"Eq", "b", std::nullopt}, {"Eq", "never", std::nullopt}}),
              "[Eq]\na = 1\nc = 3");
}

TEST(TomlText, UnusualLayoutsCanBeEdited) {
    EXPECT_EQ(edited("Eq.a = 1\n", {{"Eq", "b", "2"}}), "Eq.a = 1\nEq.b = 2\n");
    EXPECT_EQ(edited("Eq = { a = 1 } # x\n", {{"Eq", "b", "2"}}), "Eq = { a = 1, b = 2 } # x\n");
    EXPECT_EQ(edited("Eq = {}\n", {{"Eq", "b", "2"}}), "Eq = { b = 2}\n");
    EXPECT_EQ(edited("[Eq.more]\nx = 1\n", {{"Eq", "b", "2"}}),
              "[Eq.more]\nx = 1\n\n[Eq]\nb = 2\n");
    EXPECT_EQ(edited("\xEF\xBB\xBF[Eq]\na = 1\n", {{"Eq", "a", "2"}}), "\xEF\xBB\xBF[Eq]\na = 2\n");
}

TEST(TomlText, LayoutsThatCanNotBePatchedKeepTheirValues) {
    using Integers = std::map<std::string, long long>;
    EXPECT_EQ(
        integersIn(edited("Eq = { a = 1, b = 2 }\n[G]\nc = 3\n", {{"Eq", "a", std::nullopt}})),
        (Integers{{"Eq/b", 2}, {"G/c", 3}}));
    EXPECT_EQ(integersIn(edited("Eq = 5\n[G]\nc = 3\n", {{"Eq", "a", "1"}})),
              (Integers{{"Eq/a", 1}, {"G/c", 3}}));
    EXPECT_EQ(integersIn(edited("Eq.more.x = 1\n", {{"Eq", "a", "1"}})), (Integers{{"Eq/a", 1}}));
}

TEST(TomlText, AnyEditsOfAnyLayoutDoWhatTheySay) {
    const std::vector<std::string> pieces = {"[a]\n",
                                             "x = 1\n",
                                             "  y = 2 # why\n",
                                             "[b] # head\r\n",
                                             "z = [1, # one\n 2]\n",
                                             "[c.deep]\n",
                                             "\n",
                                             "# note\n",
                                             "d = { x = 1, y = 2 }\n",
                                             "e.x = 5\n",
                                             "w = 4",
                                             "\"q r\" = 6\n",
                                             "[\"f g\"]\n",
                                             "s = \"\"\"\n[a]\nx = 9\n\"\"\"\n",
                                             "[[list]]\n",
                                             "e.y.z = 1\n"};
    const std::vector<std::string> sections = {"", "a", "b", "c", "d", "e", "f g", "new"};
    const std::vector<std::string> names = {"x", "y", "z", "w", "q r", "top", "s"};
    std::mt19937 random{31};
    int edits = 0;
    for (int round = 0; round < 4000; ++round) {
        std::string text;
        for (auto count = random() % 8; count > 0; --count)
            text += pieces[random() % pieces.size()];
        if (std::holds_alternative<TomlError>(readToml(text))) continue;

        auto expected = integersIn(text);
        std::map<std::pair<std::string, std::string>, TomlEdit> chosen;
        for (auto count = random() % 4; count > 0; --count) {
            const std::string& section = sections[random() % sections.size()];
            const std::string& name = names[random() % names.size()];
            const bool removes = random() % 3 == 0;
            const auto value = static_cast<long long>(random() % 1000);
            // At the top a name may be a section's, and writing it would do away with that.
            if (section.empty() && name != "top" && name != "w") continue;
            chosen[{section, name}] = {
                section, name, removes ? std::nullopt : std::optional{std::to_string(value)}};
            expected.erase(section + "/" + name);
            if (!removes) expected[section + "/" + name] = value;
        }
        std::vector<TomlEdit> list;
        for (const auto& [place, edit] : chosen)
            list.push_back(edit);
        ASSERT_EQ(integersIn(edited(text, list)), expected) << text << "\n->\n"
                                                            << edited(text, list);
        edits += static_cast<int>(list.size());
    }
    EXPECT_GT(edits, 1000);
}

TEST(TomlText, EveryStringComesBack) {
    for (const std::string& text :
         {std::string{}, std::string{"a \"b\" \\ c"}, std::string{"tab\tnew\nline\r"},
          std::string{"nul\0in", 6}, std::string{"\x01\x1F\x7F"},
          std::string{"\xC3\xA9 \xF0\x9F\x8E\xB5"}}) {
        const auto parsed = readToml("a = " + tomlString(text));
        ASSERT_TRUE(std::holds_alternative<std::vector<TomlValue>>(parsed)) << text;
        EXPECT_EQ(std::get<std::vector<TomlValue>>(parsed)[0].content, text);
    }
    EXPECT_EQ(tomlString("a\xFF"), "\"a\xEF\xBF\xBD\""); // no file is lost to a stray byte
}

} // namespace velorine
