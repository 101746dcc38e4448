#pragma once

#include "config/SettingsStore.h"
#include "foundation/Lock.h"
#include "foundation/ThreadAnnotations.h"

#include <functional>
#include <map>

namespace velorine {

/// Settings for the life of the process: for tests, and where there is no folder to keep any.
class MemoryStore final : public SettingsStore {
public:
    std::optional<SettingsValue> value(std::string_view key, std::string_view name) override;
    void set(std::string_view key, std::string_view name, const SettingsValue& value) override;
    void erase(std::string_view key, std::string_view name) override;
    std::vector<SettingsEntry> values(std::string_view key) override;
    std::vector<std::string> subkeys(std::string_view key) override;
    void eraseKey(std::string_view key) override;

private:
    using Values = std::map<std::string, SettingsValue, std::less<>>;

    Lock lock;
    std::map<std::string, Values, std::less<>> keys GUARDED_BY(lock); ///< none of them empty
};

} // namespace velorine
