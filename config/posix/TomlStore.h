#pragma once

#include "config/SettingsStore.h"
#include "config/posix/FileReplace.h"
#include "config/posix/TomlFile.h"
#include "foundation/Lock.h"
#include "foundation/ThreadAnnotations.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace velorine {

/// A settings file that is no TOML, or can't be read.
struct BrokenFile {
    std::filesystem::path file;
    std::filesystem::path keptAs; ///< copy of it; empty if none could be made
    TomlError error;
};

/// Settings in a TOML file that people read and edit: a table a section.
///
/// Floats are decimals, bools true and false: the kinds come from the key table. A whole number
/// stands for a float, and for a bool, where one belongs; a value of another type counts as absent.
/// Comments, layout and unknown values stay through a write.
///
/// Other processes and editors may change the file at any time: it is read again once it changed,
/// and a write changes what it then holds, under a lock. What can't be written serves this process
/// from memory, and is tried again with the next write. A file that is no TOML counts as empty, and
/// is kept aside as `FILE.broken`; one that can't be read is never written.
class TomlStore final : public SettingsStore {
public:
    struct Options {
        std::filesystem::path lockFile;                  ///< empty: the file's name with ".lock"
        std::function<void(const BrokenFile&)> onBroken; ///< once a text; no lock is held
        FileStepHook afterStep;                          ///< of a write
    };

    explicit TomlStore(const std::filesystem::path& settingsFile);
    TomlStore(const std::filesystem::path& settingsFile, Options choices);

    std::optional<SettingsValue> value(std::string_view key, std::string_view name) override;
    bool exists(std::string_view key, std::string_view name) override;
    void set(std::string_view key, std::string_view name, const SettingsValue& value) override;
    void erase(std::string_view key, std::string_view name) override;
    std::vector<SettingsEntry> values(std::string_view key) override;
    std::vector<std::string> subkeys(std::string_view key) override;
    void eraseKey(std::string_view key) override;
    bool flush() override;
    void beginBatch() override;
    void endBatch() override;

private:
    /// A change that the file hasn't got yet; no value takes it out.
    struct Change {
        std::string section;
        std::string name;
        std::optional<SettingsValue> value;
    };

    const Change* pendingChange(std::string_view section, std::string_view name) const
        REQUIRES(lock);
    void change(std::string_view key, std::string_view name, std::optional<SettingsValue> value);
    std::vector<TomlEdit> editsToFile() const REQUIRES(lock);

    /// Takes up what others wrote, and reports a broken file.
    void refresh();
    void commit();
    void writeChanges() REQUIRES(lock);

    /// Copies the broken file, once for each text that it had.
    /// @return whether its text is safe
    bool keepAside() REQUIRES(lock);
    void report();

    const Options options;
    Lock lock;
    TomlFile file GUARDED_BY(lock);
    std::vector<Change> pending GUARDED_BY(lock);           ///< in their order
    int batches GUARDED_BY(lock) = 0;                       ///< open ones
    std::optional<std::string> brokenText GUARDED_BY(lock); ///< that was last dealt with
    bool brokenIsSafe GUARDED_BY(lock) = false;
    std::optional<BrokenFile> news GUARDED_BY(lock); ///< not yet reported
};

} // namespace velorine
