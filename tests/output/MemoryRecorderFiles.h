#pragma once

#include "output/RecorderFile.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace velorine::test {

using Bytes = std::vector<std::byte>;

/// Recordings in memory, on a disk that can be full and that refuses calls where a test wants it.
/// Guarded by its user.
class MemoryRecorderFiles final : public RecorderFiles {
public:
    std::unique_ptr<RecorderFile> openExisting(const char* path) override {
        ++openings;
        if (refuses()) return nullptr;
        const auto found = files.find(path);
        if (found == files.end() || found->second.isOpen) return nullptr;
        return std::make_unique<File>(*this, found->second);
    }

    std::unique_ptr<RecorderFile> create(const char* path) override {
        ++creations;
        if (refuses()) return nullptr;
        Stored& stored = files[path];
        if (stored.isOpen) return nullptr;
        stored.bytes.clear();
        return std::make_unique<File>(*this, stored);
    }

    bool has(const std::string& path) const { return files.contains(path); }
    Bytes& operator[](const std::string& path) { return files[path].bytes; }

    int calls = 0;       ///< of any kind so far
    int refuseFrom = 0;  ///< number of the first call that is refused, from 1; 0: none
    int refuseCount = 1; ///< how many in a row
    int openings = 0;    ///< calls of `openExisting`
    int creations = 0;   ///< calls of `create`
    int openFiles = 0;   ///< now
    std::size_t room = std::numeric_limits<std::size_t>::max(); ///< bytes that a file can have
    std::function<void()> duringWrite; ///< what a slow disk does to the clock

private:
    struct Stored {
        Bytes bytes;
        bool isOpen = false;
    };

    class File final : public RecorderFile {
    public:
        File(MemoryRecorderFiles& owner, Stored& content) : files(owner), stored(content) {
            stored.isOpen = true;
            ++files.openFiles;
        }
        ~File() override { release(); }
        File(const File&) = delete;
        File& operator=(const File&) = delete;

        std::size_t read(std::int64_t offset, std::span<std::byte> bytes) override {
            const auto first = static_cast<std::size_t>(offset);
            if (files.refuses() || first >= stored.bytes.size()) return 0;
            const std::size_t count = std::min(bytes.size(), stored.bytes.size() - first);
            std::copy_n(stored.bytes.data() + first, count, bytes.data());
            return count;
        }

        bool write(std::int64_t offset, std::span<const std::byte> bytes) override {
            if (files.duringWrite) files.duringWrite();
            if (files.refuses()) return false;
            const auto first = static_cast<std::size_t>(offset);
            const std::size_t last = std::min(first + bytes.size(), files.room);
            if (last > stored.bytes.size()) stored.bytes.resize(last);
            const std::size_t taken = last > first ? last - first : 0;
            std::copy_n(bytes.data(), taken, stored.bytes.data() + std::min(first, last));
            return taken == bytes.size();
        }

        std::int64_t size() override {
            return files.refuses() ? 0 : static_cast<std::int64_t>(stored.bytes.size());
        }

        bool truncate(std::int64_t size) override {
            if (files.refuses()) return false;
            stored.bytes.resize(static_cast<std::size_t>(size));
            return true;
        }

        bool close() override {
            release();
            return !files.refuses();
        }

    private:
        void release() {
            if (closed) return;
            closed = true;
            stored.isOpen = false;
            --files.openFiles;
        }

        MemoryRecorderFiles& files;
        Stored& stored;
        bool closed = false;
    };

    bool refuses() {
        ++calls;
        return refuseFrom > 0 && calls >= refuseFrom && calls < refuseFrom + refuseCount;
    }

    std::map<std::string, Stored> files;
};

} // namespace velorine::test
