#pragma once

#include "foundation/Kernel.h"
#include "kestrix/dsphost/WaDspStage.h"
#include "kestrix/dsphost/WinampDsp.h"
#include "tests/dsphost/PluginFile.h"
#include "tests/dsphost/PluginLog.h"
#include "tests/stages/StageChain.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace velorine::test {

/// What the plug-in of a test writes into. Outlives the stage: its last call comes as that ends.
struct DspLog {
    DspLog() {
        plugin.currentThread = [] { return kernel().currentThreadId(); };
        plugin.currentPriority = [] { return kernel().currentPriority(); };
        plugin.gain = 1.0;
    }

    /// The operations that the plug-in was asked for, a letter each.
    std::string operations() const {
        std::string text;
        for (int i = 0; i < plugin.count; ++i)
            text += plugin.calls[i].operation;
        return text;
    }

    PluginLog plugin{};
};

/// Module `index` of the test's plug-in, which writes into `log`.
inline WaDspStage::Plugin pluginOf(int index, PluginLog& log) {
    void* const library = openPlugin(VELORINE_TEST_PLUGIN);
    if (!library) return {};
    const auto getHeader =
        reinterpret_cast<winampDSPHeader* (*)()>(functionOf(library, "winampDSPGetHeader2"));
    winampDSPHeader* const header = getHeader();
    winampDSPModule* const module = header->getModule(index);
    if (module) module->userData = &log;
    return {library, header, module};
}

/// A chain with the DSP stage in it, and a plug-in in a library of its own if a test loads one.
struct DspChain : private DspLog, StageChain<WaDspStage> {
    using DspLog::operations;

    /// The stage finds module `index` of the test's plug-in when it is enabled.
    void loadModule(int index) {
        stage.loader = [this, index] { return pluginOf(index, plugin); };
    }

    PluginLog& log() { return plugin; }

    /// Appends stereo frames of which the left channel counts from 0 on, the right one back.
    void writeCounting(int frames, int rate = 48000) {
        std::vector<std::int16_t> pairs;
        for (int i = 0; i < frames; ++i, ++written) {
            pairs.push_back(static_cast<std::int16_t>(written));
            pairs.push_back(static_cast<std::int16_t>(-written));
        }
        write(formatOf(sampleType::int16, 2, rate), pairs);
    }

private:
    int written = 0;
};

} // namespace velorine::test
