#include "config/win32/RegistryStore.h"

#include <windows.h>

#include <algorithm>
#include <array>

namespace velorine {

namespace {

/// An open key below HKEY_CURRENT_USER. Owns it.
class OpenKey {
public:
    OpenKey(std::string_view path, REGSAM access) {
        if (RegOpenKeyExA(HKEY_CURRENT_USER, std::string{path}.c_str(), 0, access, &key) !=
            ERROR_SUCCESS)
            key = nullptr;
    }
    ~OpenKey() {
        if (key) RegCloseKey(key);
    }
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;

    explicit operator bool() const noexcept { return key != nullptr; }
    HKEY get() const noexcept { return key; }

private:
    HKEY key = nullptr;
};

/// Text of a value whose size is known; it may have changed meanwhile, and then is absent.
std::optional<std::string> queryText(HKEY key, const char* name, DWORD size) {
    std::string text(size, '\0');
    DWORD type = REG_NONE;
    if (RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(text.data()), &size) !=
            ERROR_SUCCESS ||
        type != REG_SZ)
        return std::nullopt;
    text.resize(std::min<std::size_t>(size, text.size()));
    return text.substr(0, text.find('\0')); // the terminating zero is stored, if the writer had one
}

std::optional<SettingsValue> query(HKEY key, const char* name) {
    std::uint32_t number = 0;
    DWORD type = REG_NONE;
    DWORD size = sizeof number;
    const LSTATUS result =
        RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(&number), &size);
    if (result == ERROR_SUCCESS && type == REG_DWORD && size == sizeof number) return number;
    if ((result == ERROR_SUCCESS || result == ERROR_MORE_DATA) && type == REG_SZ)
        return queryText(key, name, size);
    return std::nullopt;
}

} // namespace

std::optional<SettingsValue> RegistryStore::value(std::string_view key, std::string_view name) {
    const OpenKey opened{key, KEY_READ};
    return opened ? query(opened.get(), std::string{name}.c_str()) : std::nullopt;
}

bool RegistryStore::exists(std::string_view key, std::string_view name) {
    const OpenKey opened{key, KEY_QUERY_VALUE};
    return opened && RegQueryValueExA(opened.get(), std::string{name}.c_str(), nullptr, nullptr,
                                      nullptr, nullptr) == ERROR_SUCCESS;
}

void RegistryStore::set(std::string_view key, std::string_view name, const SettingsValue& value) {
    createKey(key);
    const OpenKey opened{key, KEY_WRITE};
    if (!opened) return;
    const std::string valueName{name};
    if (const auto* const number = std::get_if<std::uint32_t>(&value)) {
        RegSetValueExA(opened.get(), valueName.c_str(), 0, REG_DWORD,
                       reinterpret_cast<const BYTE*>(number), sizeof *number);
        return;
    }
    const auto& text = std::get<std::string>(value);
    RegSetValueExA(opened.get(), valueName.c_str(), 0, REG_SZ,
                   reinterpret_cast<const BYTE*>(text.c_str()),
                   static_cast<DWORD>(text.size() + 1));
}

void RegistryStore::erase(std::string_view key, std::string_view name) {
    const OpenKey opened{key, KEY_SET_VALUE};
    if (opened) RegDeleteValueA(opened.get(), std::string{name}.c_str());
}

std::vector<SettingsEntry> RegistryStore::values(std::string_view key) {
    constexpr DWORD longestName = 16384; // characters, what the registry allows
    std::vector<SettingsEntry> entries;
    const OpenKey opened{key, KEY_READ};
    if (!opened) return entries;
    std::string name(longestName, '\0');
    for (DWORD index = 0;; ++index) {
        DWORD length = longestName;
        if (RegEnumValueA(opened.get(), index, name.data(), &length, nullptr, nullptr, nullptr,
                          nullptr) != ERROR_SUCCESS)
            return entries;
        std::string found = name.substr(0, length);
        if (auto value = query(opened.get(), found.c_str()))
            entries.push_back({std::move(found), std::move(*value)});
    }
}

std::vector<std::string> RegistryStore::subkeys(std::string_view key) {
    std::vector<std::string> names;
    const OpenKey opened{key, KEY_READ};
    if (!opened) return names;
    std::array<char, 256> name{}; // 255 characters are the most
    for (DWORD index = 0;; ++index) {
        DWORD length = static_cast<DWORD>(name.size());
        if (RegEnumKeyExA(opened.get(), index, name.data(), &length, nullptr, nullptr, nullptr,
                          nullptr) != ERROR_SUCCESS)
            break;
        names.emplace_back(name.data(), length);
    }
    std::sort(names.begin(), names.end());
    return names;
}

void RegistryStore::createKey(std::string_view key) {
    HKEY created = nullptr;
    if (RegCreateKeyA(HKEY_CURRENT_USER, std::string{key}.c_str(), &created) == ERROR_SUCCESS)
        RegCloseKey(created);
}

void RegistryStore::eraseKey(std::string_view key) {
    RegDeleteKeyA(HKEY_CURRENT_USER, std::string{key}.c_str());
}

} // namespace velorine
