#include "output/RecorderFile.h"
#include "tests/output/TemporaryFolder.h"
#include "tests/output/WavParse.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace velorine {
namespace {

using test::pattern;

TEST(NativeRecorderFiles, DontWaitForTheReaderOfAPipe) {
    const test::TemporaryFolder folder;
    const std::string pipe = folder.path("pipe.wav");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_FALSE(RecorderFiles::native().create(pipe.c_str()));
}

TEST(NativeRecorderFiles, FillADeviceThatKeepsNothing) {
    auto file = RecorderFiles::native().create("/dev/null");
    ASSERT_TRUE(file);
    EXPECT_TRUE(file->write(0, pattern(44)));
    EXPECT_TRUE(file->truncate(0));
    EXPECT_EQ(file->size(), 0);
    EXPECT_TRUE(file->close());
}

TEST(NativeRecorderFiles, TellOfAFullDisk) {
    auto file = RecorderFiles::native().create("/dev/full");
    if (!file) GTEST_SKIP() << "no /dev/full here";
    EXPECT_FALSE(file->write(0, pattern(44)));
}

} // namespace
} // namespace velorine
