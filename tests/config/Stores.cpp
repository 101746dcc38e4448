#include "tests/config/Stores.h"

#include "config/LayeredStore.h"
#include "config/MemoryStore.h"

namespace velorine::test {

namespace {

template <typename Layer>
StoresUnderTest layered() {
    const auto below = std::make_shared<MemoryStore>();
    const auto store = std::make_shared<Layer>(*below);
    return {below, store, std::make_shared<SubkeyPresets>(*store)};
}

} // namespace

std::vector<StoreKind> storeKinds() {
    std::vector<StoreKind> kinds = platformStoreKinds();
    kinds.push_back(
        {"memory", [] {
             const auto store = std::make_shared<MemoryStore>();
             return StoresUnderTest{store, store, std::make_shared<SubkeyPresets>(*store)};
         }});
    kinds.push_back({"overlay", layered<OverlayStore>});
    kinds.push_back({"copyOnWrite", layered<CopyOnWriteStore>});
    return kinds;
}

} // namespace velorine::test
