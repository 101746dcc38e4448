#pragma once

#include <atomic>
#include <cstdint>

namespace velorine::test {

/// What a test's plug-in was asked, by the plug-in itself: a module's `userData` points to it.
/// Plain data, for both sides of a library.
struct PluginLog {
    struct Call {
        char operation; ///< 'i'nit, 'c'onfig, 'm'odify, 'q'uit
        int frames, bits, channels, rate;
        std::uint32_t thread;
        int priority;
    };

    static constexpr int capacity = 4096;
    Call calls[capacity];
    std::atomic<int> count; ///< at `capacity` nothing more is written down

    // The test's to set.
    std::uint32_t (*currentThread)();
    int (*currentPriority)();
    int initAnswer; ///< 0: the module runs
    int answer;     ///< of `ModifySamples`, in place of the frames, if `answers`
    bool answers;
    double gain;
    void (*duringConfig)(void* context); ///< runs while the dialog is open; may be null
    void* context;
};

} // namespace velorine::test
