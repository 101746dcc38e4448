#pragma once

#include "host/ModuleOptions.h"
#include "player/HostFormat.h"
#include "player/RenderProgress.h"
#include "player/RenderWindow.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace velorine {

class Console;
class ModuleHost;

/// Why a render came to nothing, for a person: the file that it is about, and what is wrong.
class RenderError : public std::runtime_error {
public:
    RenderError(std::string aboutFile, const std::string& text)
        : std::runtime_error(text), file(std::move(aboutFile)) {}

    const std::string file;
};

/// Files of one format, recorded as one gapless stream into one file.
class RenderJob {
public:
    /// Looks at the inputs. @throws RenderError when one can't be used, or doesn't go with the
    /// first
    RenderJob(std::vector<std::string> inputFiles, std::string outputFile);

    /// Records. @throws RenderError, with nothing left of the output
    /// @return false when a signal ended it, likewise
    bool run(const std::vector<ModuleOptions::Setting>& settings, const RenderChain& chain,
             Console& console);

private:
    void lookAt(const std::string& input);
    bool record(ModuleHost& host, RenderProgress& progress);
    bool writeZeros(ModuleHost& host, std::int64_t frames);
    bool writeFile(ModuleHost& host, const std::string& input, RenderProgress& progress);
    bool writeTail(ModuleHost& host);
    bool write(ModuleHost& host, std::span<const std::byte> frames);
    void checkRecording(const ModuleStatus& module) const;

    const std::vector<std::string> inputs;
    const std::string output;
    HostFormat format;
    std::int64_t programme = 0; ///< frames of all inputs together
    RenderWindow window;
    std::vector<std::byte> block;   ///< decoded
    std::vector<std::byte> silence; ///< of the block's size
};

} // namespace velorine
