#pragma once

#include "config/PresetStore.h"
#include "config/SettingsStore.h"

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace velorine::test {

/// Stores and presets to run one test body over, each empty, with all that it stands on.
struct StoresUnderTest {
    std::shared_ptr<void> ground; ///< what has to live as long as the store
    std::shared_ptr<SettingsStore> store;
    std::shared_ptr<PresetStore> presets;
};

struct StoreKind {
    std::string name;
    std::function<StoresUnderTest()> make;
};

/// Every store that this machine has, layered ones included.
std::vector<StoreKind> storeKinds();

/// Those that the machine keeps settings in.
std::vector<StoreKind> platformStoreKinds();

/// How a failing test names its store.
inline void PrintTo(const StoreKind& kind, std::ostream* out) {
    *out << kind.name;
}

inline std::string key(std::string_view section) {
    return keyPath(settingsRoot, section);
}

} // namespace velorine::test
