#include "output/RecorderFile.h"
#include "output/RecordingsFolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>

namespace velorine {

namespace {

class PosixRecorderFile final : public RecorderFile {
public:
    explicit PosixRecorderFile(int opened) : descriptor(opened) {}
    ~PosixRecorderFile() override { close(); }
    PosixRecorderFile(const PosixRecorderFile&) = delete;
    PosixRecorderFile& operator=(const PosixRecorderFile&) = delete;

    std::size_t read(std::int64_t offset, std::span<std::byte> bytes) override {
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t got = pread(descriptor, bytes.data() + done, bytes.size() - done,
                                      offset + static_cast<off_t>(done));
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) break;
            done += static_cast<std::size_t>(got);
        }
        return done;
    }

    bool write(std::int64_t offset, std::span<const std::byte> bytes) override {
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t taken = pwrite(descriptor, bytes.data() + done, bytes.size() - done,
                                         offset + static_cast<off_t>(done));
            if (taken < 0 && errno == EINTR) continue;
            if (taken <= 0) return false;
            done += static_cast<std::size_t>(taken);
        }
        return true;
    }

    std::int64_t size() override {
        struct stat facts {};
        return fstat(descriptor, &facts) == 0 ? facts.st_size : 0;
    }

    /// A device such as /dev/null always is empty and refuses to be cut.
    bool truncate(std::int64_t length) override {
        return size() == length || ftruncate(descriptor, length) == 0;
    }

    bool close() override {
        if (descriptor < 0) return true;
        const int result = ::close(descriptor);
        descriptor = -1;
        return result == 0;
    }

    /// Keeps other recorders away; the lock goes with the descriptor.
    bool claim() const { return flock(descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK; }

private:
    static_assert(sizeof(off_t) == 8);

    int descriptor; ///< -1 once closed
};

/// Opening must not wait for a reader of a named pipe: the audio would wait with it.
std::unique_ptr<PosixRecorderFile> openClaimed(const char* path, int flags) {
    const int descriptor = open(path, flags | O_NONBLOCK | O_CLOEXEC, 0666);
    if (descriptor < 0) return nullptr;
    auto file = std::make_unique<PosixRecorderFile>(descriptor);
    if (!file->claim()) return nullptr;
    return file;
}

/// Makes the folder of `path`, one level. The recordings folder also gets the music folder that it
/// stands in, which a new account may not have.
void makeFolder(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos || slash == 0) return;
    const std::string folder{path.substr(0, slash)};
    if (mkdir(folder.c_str(), 0777) == 0 || errno != ENOENT) return;

    const std::size_t parentSlash = folder.rfind('/');
    if (parentSlash == std::string::npos || folder + '/' != recordingsFolder()) return;
    mkdir(folder.substr(0, parentSlash).c_str(), 0777);
    mkdir(folder.c_str(), 0777);
}

class PosixRecorderFiles final : public RecorderFiles {
public:
    std::unique_ptr<RecorderFile> openExisting(const char* path) override {
        return openClaimed(path, O_RDWR);
    }

    std::unique_ptr<RecorderFile> create(const char* path) override {
        makeFolder(path);
        auto file = openClaimed(path, O_WRONLY | O_CREAT);
        if (!file || !file->truncate(0)) return nullptr; // emptied only once it is ours
        return file;
    }
};

} // namespace

RecorderFiles& RecorderFiles::native() {
    static PosixRecorderFiles instance;
    return instance;
}

} // namespace velorine
