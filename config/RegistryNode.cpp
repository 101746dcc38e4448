#include "config/RegistryNode.h"

#include <bit>

namespace velorine {

void RegistryNode::exchangeDword(std::string_view section, std::string_view name,
                                 std::uint32_t& value) {
    const std::string key = keyPath(path, section);
    if (mode == write)
        store->set(key, name, value);
    else
        value = store->dword(key, name).value_or(value);
}

void RegistryNode::exchangeBool(std::string_view section, std::string_view name, bool& value) {
    createKeyForWriting(section);
    std::uint32_t stored = value ? 1 : 0;
    exchangeDword(section, name, stored);
    value = stored != 0;
}

void RegistryNode::exchangeInt(std::string_view section, std::string_view name,
                               std::int32_t& value) {
    createKeyForWriting(section);
    auto stored = static_cast<std::uint32_t>(value);
    exchangeDword(section, name, stored);
    value = static_cast<std::int32_t>(stored);
}

void RegistryNode::exchangeFloat(std::string_view section, std::string_view name, float& value) {
    createKeyForWriting(section);
    auto stored = std::bit_cast<std::uint32_t>(value);
    exchangeDword(section, name, stored);
    value = std::bit_cast<float>(stored);
}

void RegistryNode::exchangeDouble(std::string_view section, std::string_view name, double& value) {
    auto narrowed = static_cast<float>(value);
    exchangeFloat(section, name, narrowed);
    value = static_cast<double>(narrowed);
}

void RegistryNode::exchangeString(std::string_view section, std::size_t maxLength,
                                  std::string_view name, std::string& value) {
    createKeyForWriting(section);
    const std::string key = keyPath(path, section);
    if (mode == write) {
        store->set(key, name, value);
        return;
    }
    std::optional<std::string> stored = store->text(key, name);
    if (stored && stored->size() < maxLength) value = std::move(*stored);
}

bool RegistryNode::valueExists(std::string_view section, std::string_view name) const {
    return store->exists(keyPath(path, section), name);
}

void RegistryNode::createKeyForWriting(std::string_view section) {
    if (mode == write) store->createKey(keyPath(path, section));
}

} // namespace velorine
