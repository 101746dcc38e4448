#include "tests/config/posix/TempFolder.h"

#include <cstdlib>
#include <fstream>
#include <iterator>

namespace velorine::test {

TempFolder::TempFolder() {
    std::string name = std::filesystem::temp_directory_path() / "velorine-XXXXXX";
    path = mkdtemp(name.data());
}

TempFolder::~TempFolder() {
    std::error_code refused;
    std::filesystem::remove_all(path, refused);
}

std::string contentOf(const std::filesystem::path& file) {
    std::ifstream stream{file, std::ios::binary};
    return {std::istreambuf_iterator<char>{stream}, {}};
}

void writeContent(const std::filesystem::path& file, std::string_view text) {
    std::ofstream stream{file, std::ios::binary};
    stream.write(text.data(), static_cast<std::streamsize>(text.size()));
}

} // namespace velorine::test
