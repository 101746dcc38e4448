#pragma once

#include <pulse/pulseaudio.h>

namespace velorine {

/// The functions of libpulse that the output uses, looked up at run time: a machine without the
/// library has no sound system, and everything else works.
class PulseLibrary {
public:
    /// Loaded once and kept for the life of the process. Any thread.
    /// @return null where the library is missing or lacks one of the functions
    static const PulseLibrary* load();

// NOLINTNEXTLINE(bugprone-macro-parentheses): names can't stand in parentheses
#define VELORINE_PULSE_FUNCTION(name) decltype(&::name) name = nullptr;
#include "output/pulse/PulseFunctions.inc"
#undef VELORINE_PULSE_FUNCTION

private:
    bool lookUp(void* library);
};

} // namespace velorine
