#include "config/posix/FileReplace.h"

#include "tests/config/posix/TempFolder.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>

namespace velorine {

namespace fs = std::filesystem;

TEST(FileReplace, PutsTheTextInPlace) {
    const test::TempFolder folder;
    const fs::path file = folder / "a.toml";
    EXPECT_TRUE(replaceFile(file, "first", {}));
    EXPECT_EQ(test::contentOf(file), "first");
    EXPECT_TRUE(replaceFile(file, "2", {}));
    EXPECT_EQ(test::contentOf(file), "2");
    EXPECT_FALSE(fs::exists(folder / "a.toml.new"));
}

TEST(FileReplace, StepsAreSafeInTheirOrder) {
    const test::TempFolder folder;
    std::vector<FileStep> steps;
    const auto note = [&steps](FileStep step) { steps.push_back(step); };
    const FileLock lock{folder / "lock", note};
    replaceFile(folder / "a.toml", "text", note);
    EXPECT_EQ(steps,
              (std::vector<FileStep>{FileStep::locked, FileStep::opened, FileStep::written,
                                     FileStep::synced, FileStep::renamed, FileStep::folderSynced}));
}

TEST(FileReplace, KeepsPermissions) {
    const test::TempFolder folder;
    const fs::path file = folder / "a.toml";
    test::writeContent(file, "old");
    ::chmod(file.c_str(), 0600);
    EXPECT_TRUE(replaceFile(file, "new", {}));
    struct stat status {};
    ASSERT_EQ(::stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST(FileReplace, WritesBehindALink) {
    const test::TempFolder folder;
    fs::create_directory(folder / "dotfiles");
    test::writeContent(folder / "dotfiles/real.toml", "old");
    fs::create_symlink(folder / "dotfiles/real.toml", folder / "a.toml");
    EXPECT_TRUE(replaceFile(folder / "a.toml", "new", {}));
    EXPECT_TRUE(fs::is_symlink(folder / "a.toml"));
    EXPECT_EQ(test::contentOf(folder / "dotfiles/real.toml"), "new");
}

TEST(FileReplace, OldFileStandsWhereTheDiskIsFull) {
    const test::TempFolder folder;
    const fs::path file = folder / "a.toml";
    test::writeContent(file, "old");
    const pid_t child = fork();
    if (child == 0) { // its files may not grow: as good as a full disk
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{1000, 1000};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        ::_exit(replaceFile(file, std::string(5000, 'x'), {}) ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(test::contentOf(file), "old");
    EXPECT_FALSE(fs::exists(folder / "a.toml.new"));
}

TEST(FileReplace, FailsWhereThereIsNoFolder) {
    const test::TempFolder folder;
    EXPECT_FALSE(replaceFile(folder / "none/a.toml", "text", {}));
    EXPECT_FALSE((FileLock{folder / "none/lock", {}}).isHeld());
}

TEST(FileLock, IsNotJudgedByTheFile) {
    const test::TempFolder folder;
    test::writeContent(folder / "lock", "left by somebody");
    EXPECT_TRUE((FileLock{folder / "lock", {}}).isHeld());
    EXPECT_TRUE((FileLock{folder / "lock", {}}).isHeld());
}

} // namespace velorine
