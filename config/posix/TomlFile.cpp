#include "config/posix/TomlFile.h"

#include <cerrno>

namespace velorine {

namespace {

bool isSame(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool isSame(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           isSame(a.st_mtim, b.st_mtim) && isSame(a.st_ctim, b.st_ctim);
}

} // namespace

void TomlFile::refresh() {
    struct stat now {};
    const bool exists = ::stat(path.c_str(), &now) == 0;
    if (exists == static_cast<bool>(current) && (!exists || isSame(now, identity))) return;
    readAgain();
}

void TomlFile::readAgain() {
    values.clear();
    error.reset();
    text.clear();
    wasRead = false;
    current = Descriptor{path, O_RDONLY | O_NOCTTY};
    if (!current && (errno == ENOENT || errno == ENOTDIR)) return;
    auto read = current ? readAll(current) : std::nullopt;
    if (!read) {
        error = TomlError{0, 0, "it can't be read"};
        return;
    }
    ::fstat(current.get(), &identity);
    wasRead = true;
    text = std::move(*read);
    auto parsed = readToml(text);
    if (auto* const why = std::get_if<TomlError>(&parsed))
        error = std::move(*why);
    else
        values = std::move(std::get<std::vector<TomlValue>>(parsed));
}

const TomlValue* TomlFile::find(std::string_view section, std::string_view name) const {
    for (const TomlValue& value : values)
        if (value.name == name && value.section == section) return &value;
    return nullptr;
}

} // namespace velorine
