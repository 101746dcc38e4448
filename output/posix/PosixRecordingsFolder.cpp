#include "output/RecordingsFolder.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>

namespace velorine {

namespace {

/// An environment variable that names a folder by its full path; empty without one.
std::string folderFromEnvironment(const char* name) {
    const char* const value = std::getenv(name);
    return value && value[0] == '/' ? value : "";
}

bool skip(std::string_view& text, std::string_view prefix) {
    if (!text.starts_with(prefix)) return false;
    text.remove_prefix(prefix.size());
    return true;
}

/// The folder in a line like `XDG_MUSIC_DIR="$HOME/Music"`; empty when it is another line. The
/// value is quoted as in a shell, and absolute or below the home directory.
std::string musicFolderInLine(std::string_view line, const std::string& home) {
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    if (!skip(line, "XDG_MUSIC_DIR=\"")) return {};

    std::string folder;
    if (skip(line, "$HOME") && (line.starts_with('/') || line.starts_with('"')))
        folder = home;
    else if (!line.starts_with('/'))
        return {};
    while (!line.empty() && line.front() != '"') {
        if (line.front() == '\\' && line.size() > 1) line.remove_prefix(1);
        folder += line.front();
        line.remove_prefix(1);
    }
    return folder;
}

/// As the user's desktop has it in user-dirs.dirs; empty when it says nothing.
std::string musicFolderOfDesktop(const std::string& home) {
    std::string config = folderFromEnvironment("XDG_CONFIG_HOME");
    if (config.empty()) config = home + "/.config";

    std::ifstream file{config + "/user-dirs.dirs"};
    std::string found;
    for (std::string line; std::getline(file, line);) {
        std::string folder = musicFolderInLine(line, home);
        if (!folder.empty()) found = std::move(folder); // a later line wins, as in a shell
    }
    return found;
}

std::string musicFolder() {
    std::string folder = folderFromEnvironment("XDG_MUSIC_DIR");
    if (!folder.empty()) return folder;

    const std::string home = folderFromEnvironment("HOME");
    if (home.empty()) return {};
    folder = musicFolderOfDesktop(home);
    return folder.empty() ? home + "/Music" : folder;
}

} // namespace

std::string recordingsFolder() {
    std::string folder = musicFolder();
    if (!folder.empty() && folder.back() != '/') folder += '/';
    return folder + "Velorine/";
}

} // namespace velorine
