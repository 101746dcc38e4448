#pragma once

#include "foundation/FxTime.h"
#include "foundation/SampleFormat.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velorine {

class SettingsStore;
class SoundSystem;

/// Set-up that no host has: taken over by the next `Init`, for a program that links the engine.
struct ModuleOptions {
    struct Setting {
        std::string section;
        std::string name;
        std::uint32_t dword = 0;         ///< number, bool, or the bits of a float
        std::optional<std::string> text; ///< instead of the dword
    };

    /// Values that stand over the stored ones for this run and are never stored.
    std::vector<Setting> overlay;

    bool storeSettings = true; ///< false: the run leaves the stored settings as they are

    std::optional<int> recordMode; ///< 1: record to `recordPath` in place of a device
    std::string recordPath;
    std::int64_t skipFrames = 0;  ///< first frames of the output that aren't recorded
    std::int64_t frameCount = -1; ///< recorded frames, -1 for all

    SettingsStore* store = nullptr; ///< null: the user's own
    SoundSystem* sound = nullptr;   ///< null: the machine's
    bool useSound = true;           ///< false: the machine's is left alone, the null target plays
};

/// Options of the next `Init`. Host's main thread.
void setModuleOptions(ModuleOptions options);

/// Which stages of the chain move or stretch what they play, besides those that only pass it on.
struct ChainStages {
    static constexpr bool kestrix = true;
    static constexpr bool resampler = true;
};

/// What a person may want to know of the running engine. A snapshot; any thread.
struct ModuleStatus {
    bool running = false; ///< between `Init` and `Quit`
    bool paused = false;
    bool deviceOpen = false;
    bool devicePlays = false;
    bool nullTarget = false;     ///< nothing is heard, for good or until the device is back
    bool fallback = false;       ///< the device that was wanted could not be had
    std::string device;          ///< as opened
    SampleFormat hostFormat;     ///< as the host writes
    SampleFormat outputFormat;   ///< as the device or the file takes
    int queueMs = 0;             ///< in the device
    int latencyMs = 0;           ///< from the written end to what is heard
    int targetMs = 0;            ///< depth that the queue grows to
    double driftRatio = 1.0;     ///< the card's rate over the nominal one
    int underflows = 0;          ///< times that the sound system ran out of samples
    std::int32_t liveBytes = 0;  ///< sample memory in use
    std::int32_t totalBytes = 0; ///< sample memory held
    bool recordingFailed = false;
    std::int64_t recordedFrames = 0; ///< of the recording that stands in for a device
};

ModuleStatus moduleStatus();

/// Puts values over the stored ones while the module runs, for the rest of the run: heard within
/// the flush margin, nothing of the stream is lost. Host's main thread; nothing happens outside of
/// a run.
void changeSettings(const std::vector<ModuleOptions::Setting>& settings);

/// Takes over what another program changed in the stored settings since the last call, or since the
/// run began. Host's main thread.
/// @return whether anything had changed
bool refreshSettings();

} // namespace velorine
