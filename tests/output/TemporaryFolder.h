#pragma once

#include "tests/output/MemoryRecorderFiles.h"

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

namespace velorine::test {

/// A new folder of the machine's that goes with its content at the end.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::random_device random; // two runs at once must not meet
        do {
            root = std::filesystem::temp_directory_path() /
                   ("velorine-test-" + std::to_string(random()));
        } while (!std::filesystem::create_directory(root));
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string path(const std::string& name) const { return (root / name).generic_string(); }

private:
    std::filesystem::path root;
};

inline Bytes contentOf(const std::string& path) {
    std::ifstream file{path, std::ios::binary};
    Bytes bytes;
    for (char c = 0; file.get(c);)
        bytes.push_back(static_cast<std::byte>(c));
    return bytes;
}

inline void fill(const std::string& path, const Bytes& content) {
    std::ofstream file{path, std::ios::binary};
    file.write(reinterpret_cast<const char*>(content.data()),
               static_cast<std::streamsize>(content.size()));
}

} // namespace velorine::test
