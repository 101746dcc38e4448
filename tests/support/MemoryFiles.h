#pragma once

#include "output/RecorderFile.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace velorine::test {

/// Recordings in memory.
class MemoryFiles final : public RecorderFiles {
public:
    std::unique_ptr<RecorderFile> openExisting(const char* path) override {
        const auto found = files.find(path);
        return found == files.end() ? nullptr : std::make_unique<File>(found->second);
    }
    std::unique_ptr<RecorderFile> create(const char* path) override {
        files[path].clear();
        return std::make_unique<File>(files[path]);
    }

    std::map<std::string, std::vector<std::byte>> files;

private:
    class File final : public RecorderFile {
    public:
        explicit File(std::vector<std::byte>& content) : bytes(content) {}

        std::size_t read(std::int64_t offset, std::span<std::byte> to) override {
            const auto from = static_cast<std::size_t>(offset);
            if (from >= bytes.size()) return 0;
            const std::size_t count = std::min(to.size(), bytes.size() - from);
            std::memcpy(to.data(), bytes.data() + from, count);
            return count;
        }
        bool write(std::int64_t offset, std::span<const std::byte> from) override {
            const auto end = static_cast<std::size_t>(offset) + from.size();
            if (bytes.size() < end) bytes.resize(end);
            std::memcpy(bytes.data() + offset, from.data(), from.size());
            return true;
        }
        std::int64_t size() override { return static_cast<std::int64_t>(bytes.size()); }
        bool truncate(std::int64_t length) override {
            bytes.resize(static_cast<std::size_t>(length));
            return true;
        }
        bool close() override { return true; }

    private:
        std::vector<std::byte>& bytes;
    };
};

} // namespace velorine::test
