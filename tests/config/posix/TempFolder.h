#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace velorine::test {

/// An empty folder that goes with the object, with all that is in it.
class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::filesystem::path operator/(std::string_view name) const { return path / name; }

    std::filesystem::path path;
};

std::string contentOf(const std::filesystem::path& file);
void writeContent(const std::filesystem::path& file, std::string_view text);

} // namespace velorine::test
