#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace velorine {

/// Why a file can't be written, for a person, without its name.
class OutputFileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A file in the making. Until it is complete it stands under a name of its own beside the
/// target, so that no part of one is ever taken for the whole; without `commit` nothing is left.
class OutputFile {
public:
    /// Makes the empty file. @throws OutputFileError
    explicit OutputFile(const std::string& path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& writePath() const noexcept { return temporary.empty() ? target : temporary; }

    /// Bytes in it so far; -1 for a device, which keeps none.
    std::int64_t size() const;

    /// Puts the file in its place, over one that is there. @throws OutputFileError
    void commit();

private:
    std::string target;
    std::string temporary; ///< empty: nothing has to be moved or removed, as with /dev/null
};

/// Whether both names lead to one existing file.
bool isSameFile(const std::string& one, const std::string& other);

} // namespace velorine
