#include "config/posix/TomlStore.h"
#include "tests/config/Stores.h"
#include "tests/config/posix/TempFolder.h"

#include <gtest/gtest.h>

#include <sys/file.h>
#include <sys/wait.h>

#include <array>
#include <chrono>
#include <csignal>
#include <random>
#include <set>
#include <thread>

namespace velorine {

namespace fs = std::filesystem;

namespace {

using test::key;

constexpr int valueCount = 60;

/// One generation of settings: values that only make sense together.
void writeGeneration(SettingsStore& store, std::uint32_t generation) {
    const SettingsBatch batch{store};
    for (int i = 0; i < valueCount; ++i)
        store.set(key("Someone"), "value" + std::to_string(i), generation);
}

/// The generation that a file holds; nothing if it mixes two of them or lacks a part.
std::optional<std::uint32_t> generationIn(const fs::path& file) {
    const auto parsed = readToml(test::contentOf(file));
    const auto* const values = std::get_if<std::vector<TomlValue>>(&parsed);
    if (!values || values->size() != valueCount) return std::nullopt;
    std::set<long long> generations;
    for (const TomlValue& value : *values)
        generations.insert(value.integer);
    if (generations.size() != 1) return std::nullopt;
    return static_cast<std::uint32_t>(*generations.begin());
}

/// Whether the next writer would get the lock at once.
bool lockIsFree(const fs::path& lockFile) {
    const Descriptor lock{lockFile, O_RDWR};
    return !lock || ::flock(lock.get(), LOCK_EX | LOCK_NB) == 0;
}

template <typename Body>
pid_t inChild(Body body) {
    const pid_t child = fork();
    if (child != 0) return child;
    body();
    ::_exit(0);
}

int statusOf(pid_t child) {
    int status = -1;
    ::waitpid(child, &status, 0);
    return status;
}

/// Lets a child tell its parent that it got somewhere.
class Pipe {
public:
    Pipe() {
        if (::pipe(ends.data()) != 0) ADD_FAILURE() << "no pipe";
    }
    ~Pipe() {
        ::close(ends[0]);
        ::close(ends[1]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    void signal() const {
        if (::write(ends[1], "x", 1) != 1) ::_exit(1);
    }
    void wait() const {
        char byte = 0;
        EXPECT_EQ(::read(ends[0], &byte, 1), 1);
    }

private:
    std::array<int, 2> ends{-1, -1};
};

} // namespace

TEST(TomlStoreCrash, AnyStepLeavesTheOldFileOrTheNew) {
    const test::TempFolder folder;
    const fs::path file = folder / "settings.toml";
    constexpr FileStep steps[] = {FileStep::locked, FileStep::opened,  FileStep::written,
                                  FileStep::synced, FileStep::renamed, FileStep::folderSynced};
    std::uint32_t generation = 100;
    TomlStore store{file};
    writeGeneration(store, generation);
    for (const FileStep last : steps) {
        const int status = statusOf(inChild([&] {
            TomlStore::Options options;
            options.afterStep = [last](FileStep step) {
                if (step == last) ::_exit(42);
            };
            TomlStore dying{file, options};
            writeGeneration(dying, generation + 1);
        }));
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 42);
        const bool isNew = last == FileStep::renamed || last == FileStep::folderSynced;
        EXPECT_EQ(generationIn(file), isNew ? generation + 1 : generation);
        ASSERT_TRUE(lockIsFree(folder / "settings.toml.lock"));

        generation += 10;
        writeGeneration(store, generation);
        EXPECT_TRUE(store.flush());
        EXPECT_EQ(generationIn(file), generation);
    }
}

TEST(TomlStoreCrash, KilledWritersLeaveAWholeFile) {
    const test::TempFolder folder;
    const fs::path file = folder / "settings.toml";
    std::mt19937 random{2024};
    std::uint32_t generation = 1000;
    TomlStore store{file};
    writeGeneration(store, generation);
    int midWrite = 0;
    const Pipe ready;
    for (int kill = 0; kill < 200; ++kill) {
        const pid_t child = inChild([&] {
            TomlStore dying{file};
            for (std::uint32_t next = generation + 1;; ++next) {
                writeGeneration(dying, next);
                if (next == generation + 1) ready.signal();
            }
        });
        ready.wait();
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 12000));
        ::kill(child, SIGKILL);
        statusOf(child);

        const auto found = generationIn(file);
        ASSERT_TRUE(found) << "after kill " << kill;
        EXPECT_GT(*found, generation);
        midWrite += fs::exists(folder / "settings.toml.new");
        ASSERT_TRUE(lockIsFree(folder / "settings.toml.lock"));
        generation = *found + 1;
        writeGeneration(store, generation);
        ASSERT_TRUE(store.flush());
        ASSERT_EQ(generationIn(file), generation);
    }
    RecordProperty("killedInTheMiddleOfAWrite", midWrite);
}

TEST(TomlStoreCrash, LeftoversOfAWriterDoNotMatter) {
    const test::TempFolder folder;
    const fs::path file = folder / "settings.toml";
    test::writeContent(folder / "settings.toml.new", std::string(100000, 'x'));
    test::writeContent(folder / "settings.toml.lock", "");
    TomlStore store{file};
    writeGeneration(store, 7);
    EXPECT_EQ(generationIn(file), 7U);
    EXPECT_FALSE(fs::exists(folder / "settings.toml.new"));
}

TEST(TomlStoreCrash, ProcessesKeepEachOthersValues) {
    const test::TempFolder folder;
    const fs::path file = folder / "settings.toml";
    constexpr int writers = 3;
    constexpr std::uint32_t each = 30;
    std::vector<pid_t> children;
    for (int writer = 0; writer < writers; ++writer)
        children.push_back(inChild([&] {
            TomlStore store{file};
            for (std::uint32_t i = 0; i < each; ++i)
                store.set(key("Someone"), std::to_string(writer) + "-" + std::to_string(i), i);
            ::_exit(store.flush() ? 0 : 1);
        }));
    for (const pid_t child : children)
        EXPECT_EQ(statusOf(child), 0);

    TomlStore store{file};
    EXPECT_EQ(store.values(key("Someone")).size(), writers * each);
    for (int writer = 0; writer < writers; ++writer)
        for (std::uint32_t i = 0; i < each; ++i)
            EXPECT_EQ(store.dword(key("Someone"), std::to_string(writer) + "-" + std::to_string(i)),
                      i);
}

TEST(TomlStoreCrash, WriterThatDiesHoldingTheLockFreesIt) {
    const test::TempFolder folder;
    const fs::path file = folder / "settings.toml";
    const Pipe ready;
    const pid_t child = inChild([&] {
        TomlStore::Options options;
        options.afterStep = [&](FileStep step) {
            if (step != FileStep::written) return;
            ready.signal();
            ::pause();
        };
        TomlStore dying{file, options};
        writeGeneration(dying, 1);
    });
    ready.wait();
    EXPECT_FALSE(lockIsFree(folder / "settings.toml.lock"));
    ::kill(child, SIGKILL);
    statusOf(child);
    EXPECT_TRUE(lockIsFree(folder / "settings.toml.lock"));
    EXPECT_FALSE(fs::exists(file));
    TomlStore store{file};
    writeGeneration(store, 2);
    EXPECT_EQ(generationIn(file), 2U);
}

} // namespace velorine
