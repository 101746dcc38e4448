#pragma once

#include <cstdint>

extern "C" {

/// A DSP plug-in's module, in the published layout. All calls but `ModifySamples` are made on one
/// thread, which has the parent window and pumps its messages.
struct winampDSPModule {
    char* description;
    void* hwndParent;   ///< the host's to fill before `Init`, as the next
    void* hDllInstance; ///< of the plug-in's library

    void (*Config)(winampDSPModule* module);
    int (*Init)(winampDSPModule* module); ///< 0: the module runs

    /// Works on `frames` frames in place; 0 only says what the format is.
    /// @return frames there are now: may differ, up to twice as many
    int (*ModifySamples)(winampDSPModule* module, std::int16_t* samples, int frames, int bits,
                         int channels, int rate);
    void (*Quit)(winampDSPModule* module);
    void* userData; ///< the module's own
};

/// What a plug-in's library hands out.
struct winampDSPHeader {
    int version;
    char* description;
    winampDSPModule* (*getModule)(int index); ///< null behind the last one
};

} // extern "C"
