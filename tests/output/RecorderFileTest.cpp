#include "output/RecorderFile.h"

#include "tests/output/TemporaryFolder.h"
#include "tests/output/WavParse.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace velorine {
namespace {

using test::Bytes;
using test::contentOf;
using test::pattern;

/// One body for the machine's files and for the tests' own.
class RecorderFileSystem : public testing::TestWithParam<bool> {
protected:
    RecorderFiles& files() { return isNative() ? RecorderFiles::native() : memory; }
    static bool isNative() { return GetParam(); }
    std::string path(const char* name) const { return folder.path(name); }
    Bytes content(const std::string& file) { return isNative() ? contentOf(file) : memory[file]; }

private:
    test::TemporaryFolder folder;
    test::MemoryRecorderFiles memory;
};

INSTANTIATE_TEST_SUITE_P(All, RecorderFileSystem, testing::Bool(),
                         [](const auto& one) { return one.param ? "native" : "memory"; });

TEST_P(RecorderFileSystem, OpensOnlyWhatIsThere) {
    EXPECT_FALSE(files().openExisting(path("none.wav").c_str()));
    EXPECT_TRUE(files().create(path("new.wav").c_str()));
    EXPECT_TRUE(files().openExisting(path("new.wav").c_str()));
}

TEST_P(RecorderFileSystem, ReadsBackWhatWasWritten) {
    const std::string name = path("x.wav");
    auto file = files().create(name.c_str());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->size(), 0);
    EXPECT_TRUE(file->write(0, pattern(100)));
    EXPECT_TRUE(file->write(50, pattern(100, 1000)));
    EXPECT_EQ(file->size(), 150);
    EXPECT_TRUE(file->close());

    file = files().openExisting(name.c_str());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->size(), 150);
    Bytes bytes(10);
    EXPECT_EQ(file->read(45, bytes), 10u);
    EXPECT_EQ(bytes, test::joined({pattern(5, 45), pattern(5, 1000)}));
    EXPECT_EQ(file->read(145, bytes), 5u);
    EXPECT_EQ(file->read(150, bytes), 0u);
    EXPECT_EQ(file->read(1000, bytes), 0u);
    EXPECT_TRUE(file->write(150, pattern(1)));
    EXPECT_EQ(file->size(), 151);
}

TEST_P(RecorderFileSystem, CreatesInPlaceOfAnOlderFile) {
    const std::string name = path("x.wav");
    EXPECT_TRUE(files().create(name.c_str())->write(0, pattern(100)));
    auto file = files().create(name.c_str());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->size(), 0);
    EXPECT_TRUE(file->write(0, pattern(3)));
    EXPECT_TRUE(file->close());
    EXPECT_EQ(content(name), pattern(3));
}

TEST_P(RecorderFileSystem, Cuts) {
    const std::string name = path("x.wav");
    auto file = files().create(name.c_str());
    ASSERT_TRUE(file && file->write(0, pattern(100)));
    EXPECT_TRUE(file->truncate(60));
    EXPECT_TRUE(file->truncate(60));
    EXPECT_EQ(file->size(), 60);
    EXPECT_TRUE(file->write(60, pattern(2)));
    EXPECT_TRUE(file->close());
    EXPECT_EQ(content(name), test::joined({pattern(60), pattern(2)}));
}

TEST_P(RecorderFileSystem, GivesAFileToOneRecorderOnly) {
    const std::string name = path("x.wav");
    auto file = files().create(name.c_str());
    ASSERT_TRUE(file && file->write(0, pattern(100)));
    EXPECT_FALSE(files().openExisting(name.c_str()));
    EXPECT_FALSE(files().create(name.c_str()));
    EXPECT_EQ(file->size(), 100) << "emptied under its owner's hands";
    EXPECT_TRUE(file->close());

    file = files().openExisting(name.c_str());
    ASSERT_TRUE(file);
    EXPECT_FALSE(files().create(name.c_str()));
    file.reset(); // its destructor closes too
    EXPECT_TRUE(files().create(name.c_str()));
}

TEST(NativeRecorderFiles, MakeOneLevelOfFolders) {
    const test::TemporaryFolder folder;
    EXPECT_TRUE(RecorderFiles::native().create(folder.path("new/x.wav").c_str()));
    EXPECT_TRUE(std::filesystem::exists(folder.path("new/x.wav")));
    EXPECT_FALSE(RecorderFiles::native().create(folder.path("a/b/x.wav").c_str()));
    EXPECT_FALSE(std::filesystem::exists(folder.path("a")));
}

TEST(NativeRecorderFiles, WriteBeyondFourGibibytes) {
    const test::TemporaryFolder folder;
    const std::int64_t far = 0x1'2345'6789; // sparse: takes next to no room
    auto file = RecorderFiles::native().create(folder.path("x.wav").c_str());
    ASSERT_TRUE(file);
    if (!file->write(far, pattern(4))) GTEST_SKIP() << "the disk refuses files of that size";
    EXPECT_EQ(file->size(), far + 4);
    EXPECT_TRUE(file->close());
    file = RecorderFiles::native().openExisting(folder.path("x.wav").c_str());
    ASSERT_TRUE(file);
    Bytes bytes(4);
    EXPECT_EQ(file->read(far, bytes), 4u);
    EXPECT_EQ(bytes, pattern(4));
    EXPECT_TRUE(file->truncate(far - 1));
    EXPECT_EQ(file->size(), far - 1);
}

TEST(NativeRecorderFiles, RefuseWhatIsNoFile) {
    const test::TemporaryFolder folder;
    EXPECT_FALSE(RecorderFiles::native().openExisting(folder.path("").c_str()));
    EXPECT_FALSE(RecorderFiles::native().create(folder.path("").c_str()));
}

} // namespace
} // namespace velorine
