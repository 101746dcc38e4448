// A small DSP plug-in, as a library of its own: a gain, and one that changes the length.

#include "kestrix/dsphost/WinampDsp.h"
#include "tests/dsphost/PluginLog.h"

#include <algorithm>
#include <cmath>

#ifdef _WIN32
#define PLUGIN_EXPORT extern "C" __declspec(dllexport)
#else
#define PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace {

using velorine::test::PluginLog;

PluginLog& note(winampDSPModule* module, char operation, int frames = 0, int bits = 0,
                int channels = 0, int rate = 0) {
    auto& log = *static_cast<PluginLog*>(module->userData);
    if (log.count < PluginLog::capacity)
        log.calls[log.count++] = {
            operation, frames, bits, channels, rate, log.currentThread(), log.currentPriority()};
    return log;
}

void config(winampDSPModule* module) {
    const PluginLog& log = note(module, 'c');
    if (log.duringConfig) log.duringConfig(log.context);
}

int init(winampDSPModule* module) {
    return note(module, 'i').initAnswer;
}

void quit(winampDSPModule* module) {
    note(module, 'q');
}

int applyGain(winampDSPModule* module, std::int16_t* samples, int frames, int bits, int channels,
              int rate) {
    const PluginLog& log = note(module, 'm', frames, bits, channels, rate);
    for (int i = 0; i < frames * channels; ++i)
        samples[i] = static_cast<std::int16_t>(
            std::clamp(std::lrint(samples[i] * log.gain), -32768L, 32767L));
    return log.answers ? log.answer : frames;
}

/// Each frame twice.
int stretch(winampDSPModule* module, std::int16_t* samples, int frames, int bits, int channels,
            int rate) {
    note(module, 'm', frames, bits, channels, rate);
    for (int i = frames - 1; i >= 0; --i)
        for (int channel = 0; channel < channels; ++channel)
            samples[2 * i * channels + channel] = samples[(2 * i + 1) * channels + channel] =
                samples[i * channels + channel];
    return 2 * frames;
}

char gainName[] = "Gain";
char stretchName[] = "Stretch";
char name[] = "Test plug-in";
winampDSPModule gainModule{gainName, nullptr, nullptr, config, init, applyGain, quit, nullptr};
winampDSPModule stretchModule{stretchName, nullptr, nullptr, config, init, stretch, quit, nullptr};

winampDSPModule* module(int index) {
    return index == 0 ? &gainModule : index == 1 ? &stretchModule : nullptr;
}

winampDSPHeader header{0x20, name, module};

} // namespace

PLUGIN_EXPORT winampDSPHeader* winampDSPGetHeader2() {
    return &header;
}
