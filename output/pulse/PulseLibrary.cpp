#include "output/pulse/PulseLibrary.h"

#include <dlfcn.h>

#include <type_traits>

namespace velorine {

bool PulseLibrary::lookUp(void* library) {
    const auto find = [library](auto& function, const char* name) {
        function =
            reinterpret_cast<std::remove_reference_t<decltype(function)>>(dlsym(library, name));
        return function != nullptr;
    };
    bool complete = true;
#define VELORINE_PULSE_FUNCTION(name) complete = find(name, #name) && complete;
#include "output/pulse/PulseFunctions.inc"
#undef VELORINE_PULSE_FUNCTION
    return complete;
}

const PulseLibrary* PulseLibrary::load() {
    static const PulseLibrary* const loaded = []() -> const PulseLibrary* {
        // Never closed: its own threads and exit handlers may outlive every user of it.
        void* const library = dlopen("libpulse.so.0", RTLD_NOW | RTLD_LOCAL);
        static PulseLibrary functions;
        return library && functions.lookUp(library) ? &functions : nullptr;
    }();
    return loaded;
}

} // namespace velorine
