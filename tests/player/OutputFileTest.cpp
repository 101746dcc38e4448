#include "player/OutputFile.h"
#include "tests/player/AudioFiles.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace velorine {
namespace {

using Names = std::vector<std::string>;
using test::Scratch;

std::string textOf(const std::string& path) {
    std::string text;
    for (const std::byte byte : test::bytesOf(path))
        text += static_cast<char>(byte);
    return text;
}

TEST(OutputFile, StandsInItsPlaceOnlyOnceCommitted) {
    const Scratch scratch;
    {
        OutputFile output{scratch.path("out")};
        test::writeText(output.writePath(), "new");
        EXPECT_FALSE(std::filesystem::exists(scratch.path("out")));
        EXPECT_EQ(output.size(), 3);
        output.commit();
    }
    EXPECT_EQ(scratch.names(), Names{"out"});
    EXPECT_EQ(textOf(scratch.path("out")), "new");
}

TEST(OutputFile, LeavesNothingWithoutACommit) {
    const Scratch scratch;
    test::writeText(scratch.path("out"), "old");
    {
        const OutputFile output{scratch.path("out")};
        test::writeText(output.writePath(), "new");
    }
    EXPECT_EQ(scratch.names(), Names{"out"});
    EXPECT_EQ(textOf(scratch.path("out")), "old");
}

TEST(OutputFile, SeveralMayBeInTheMaking) {
    const Scratch scratch;
    OutputFile one{scratch.path("one")};
    OutputFile other{scratch.path("other")};
    EXPECT_NE(one.writePath(), other.writePath());
}

TEST(OutputFile, LinkStaysALink) {
    const Scratch scratch;
    std::filesystem::create_directory(scratch.path("far"));
    test::writeText(scratch.path("far/real"), "old");
    std::filesystem::create_symlink("far/real", scratch.path("link"));
    OutputFile output{scratch.path("link")};
    test::writeText(output.writePath(), "new");
    output.commit();
    EXPECT_TRUE(std::filesystem::is_symlink(scratch.path("link")));
    EXPECT_EQ(textOf(scratch.path("far/real")), "new");
}

TEST(OutputFile, NameMayBeAsLongAsTheSystemAllows) {
    const Scratch scratch;
    const std::string longest(255, 'x');
    OutputFile output{scratch.path(longest)};
    output.commit();
    EXPECT_EQ(scratch.names(), Names{longest});
}

TEST(OutputFile, RefusesWhatIsNoFile) {
    const Scratch scratch;
    EXPECT_THROW(OutputFile{scratch.path("")}, OutputFileError);
    EXPECT_THROW(OutputFile{scratch.path("no/such/folder")}, OutputFileError);
}

} // namespace
} // namespace velorine
