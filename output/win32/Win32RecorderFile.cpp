#include "output/RecorderFile.h"

#include <windows.h>

#include <string>
#include <string_view>

namespace velorine {

namespace {

class Win32RecorderFile final : public RecorderFile {
public:
    explicit Win32RecorderFile(HANDLE opened) : file(opened) {}
    ~Win32RecorderFile() override { close(); }
    Win32RecorderFile(const Win32RecorderFile&) = delete;
    Win32RecorderFile& operator=(const Win32RecorderFile&) = delete;

    std::size_t read(std::int64_t offset, std::span<std::byte> bytes) override {
        DWORD done = 0;
        if (!seek(offset)) return 0;
        if (!ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr))
            return 0;
        return done;
    }

    bool write(std::int64_t offset, std::span<const std::byte> bytes) override {
        DWORD done = 0;
        return seek(offset) &&
               WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr) &&
               done == bytes.size();
    }

    std::int64_t size() override {
        LARGE_INTEGER length{};
        return GetFileSizeEx(file, &length) ? length.QuadPart : 0;
    }

    bool truncate(std::int64_t length) override { return seek(length) && SetEndOfFile(file); }

    bool close() override {
        if (file == INVALID_HANDLE_VALUE) return true;
        const bool done = CloseHandle(file) != 0;
        file = INVALID_HANDLE_VALUE;
        return done;
    }

private:
    bool seek(std::int64_t offset) {
        LARGE_INTEGER place{};
        place.QuadPart = offset;
        return SetFilePointerEx(file, place, nullptr, FILE_BEGIN) != 0;
    }

    HANDLE file; ///< INVALID_HANDLE_VALUE once closed
};

std::unique_ptr<RecorderFile> wrapped(HANDLE file) {
    if (file == INVALID_HANDLE_VALUE) return nullptr;
    return std::make_unique<Win32RecorderFile>(file);
}

void makeFolder(std::string_view path) {
    const std::size_t slash = path.find_last_of("/\\");
    if (slash == std::string_view::npos) return;
    CreateDirectoryA(std::string{path.substr(0, slash)}.c_str(), nullptr);
}

class Win32RecorderFiles final : public RecorderFiles {
public:
    std::unique_ptr<RecorderFile> openExisting(const char* path) override {
        return wrapped(CreateFileA(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                   OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    }

    std::unique_ptr<RecorderFile> create(const char* path) override {
        makeFolder(path);
        return wrapped(CreateFileA(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                   FILE_ATTRIBUTE_NORMAL, nullptr));
    }
};

} // namespace

RecorderFiles& RecorderFiles::native() {
    static Win32RecorderFiles instance;
    return instance;
}

} // namespace velorine
