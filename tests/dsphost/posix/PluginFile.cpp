#include "tests/dsphost/PluginFile.h"

#include <dlfcn.h>

namespace velorine::test {

void* openPlugin(const std::string& path) {
    return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
}

void* functionOf(void* library, const char* name) {
    return dlsym(library, name);
}

bool isLoaded(const std::string& path) {
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (library) dlclose(library);
    return library != nullptr;
}

} // namespace velorine::test
