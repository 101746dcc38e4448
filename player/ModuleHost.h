#pragma once

#include "host/ModuleOptions.h"
#include "host/OutModule.h"
#include "player/HostFormat.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace velorine {

/// The program's side of the output module: it gets the record, answers the module's messages, and
/// plays through the record's entry points alone. From `Init` to `Quit`; one at a time.
class ModuleHost {
public:
    /// @param playlist  names that the module may ask for; outlives this
    ModuleHost(const ModuleOptions& options, const std::vector<std::string>& playlist);
    ~ModuleHost();
    ModuleHost(const ModuleHost&) = delete;
    ModuleHost& operator=(const ModuleHost&) = delete;

    /// A track begins: number `index` of the list.
    void open(std::size_t index, const HostFormat& format, std::int64_t lengthMs);

    /// The track ends; `goesOn`: the next one follows without a break.
    void close(bool goesOn);

    /// Bytes that may be written now, whole frames; 0 while the module has enough.
    std::size_t permitted();

    void write(std::span<const std::byte> frames);

    Out_Module& out;

private:
    static std::intptr_t answer(VelorineHostWindow* window, unsigned message, std::uintptr_t wParam,
                                std::intptr_t lParam);

    const std::vector<std::string>& names;
    VelorineHostWindow window{};
    int frameBytes = 1;

    // Asked for on the module's threads.
    std::atomic<bool> answerGoesOn{false};
    std::atomic<std::size_t> track{0};
    std::atomic<int> trackSeconds{0};
};

} // namespace velorine
