#include "tests/dsphost/PluginFile.h"

#include <windows.h>

namespace velorine::test {

void* openPlugin(const std::string& path) {
    return LoadLibraryA(path.c_str());
}

void* functionOf(void* library, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

bool isLoaded(const std::string& path) {
    return GetModuleHandleA(path.c_str()) != nullptr;
}

} // namespace velorine::test
