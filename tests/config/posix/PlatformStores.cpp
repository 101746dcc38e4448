#include "config/posix/FilePresets.h"
#include "config/posix/TomlStore.h"
#include "tests/config/Stores.h"
#include "tests/config/posix/TempFolder.h"

namespace velorine::test {

std::vector<StoreKind> platformStoreKinds() {
    return {{"toml", [] {
                 const auto folder = std::make_shared<TempFolder>();
                 return StoresUnderTest{folder,
                                        std::make_shared<TomlStore>(*folder / "settings.toml"),
                                        std::make_shared<FilePresets>(*folder / "presets")};
             }}};
}

} // namespace velorine::test
