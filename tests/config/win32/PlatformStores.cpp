#include "config/win32/RegistryStore.h"
#include "tests/config/Stores.h"

namespace velorine::test {

namespace {

void eraseTree(SettingsStore& store, const std::string& path) {
    for (const std::string& name : store.subkeys(path))
        eraseTree(store, keyPath(path, name));
    store.eraseKey(path);
}

} // namespace

std::vector<StoreKind> platformStoreKinds() {
    return {{"registry", [] {
                 const auto store = std::make_shared<RegistryStore>();
                 eraseTree(*store, std::string{settingsRoot});
                 return StoresUnderTest{store, store, std::make_shared<SubkeyPresets>(*store)};
             }}};
}

} // namespace velorine::test
