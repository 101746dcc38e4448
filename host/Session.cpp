#include "host/Session.h"

#include "chain/driver/FxChainEdit.h"
#include "config/EmbeddedPreset.h"
#include "config/KeyTable.h"
#include "config/NamedPresets.h"
#include "config/RegistryNode.h"
#include "foundation/CpuFeatures.h"
#include "foundation/ErrorReport.h"
#include "foundation/KeepAwake.h"
#include "foundation/LockedPages.h"
#include "foundation/PriorityScope.h"
#include "host/HostStream.h"
#include "host/HostWindow.h"
#include "output/MachineSound.h"
#include "output/RecorderFile.h"

#include <algorithm>

namespace velorine {

namespace {

constexpr std::size_t leastWorkingSet = std::size_t{32} << 20; ///< so that pages can be pinned
constexpr std::size_t mostWorkingSet = std::size_t{64} << 20;
constexpr int playOutMs = 5000;

UserSettings settingsFor(const ModuleOptions& options) {
    if (options.store) return {};
    return openUserSettings([](const std::string& text) { errorBox("%s", text.c_str()); });
}

SettingsStore& baseStore(const ModuleOptions& options, const UserSettings& user) {
    return options.store ? *options.store : *user.store;
}

std::string keyOf(const std::string& section) {
    return keyPath(settingsRoot, section);
}

} // namespace

Session::Session(HostStream& hostStream, HostWindow& hostWindow, const ModuleOptions& moduleOptions)
    : stream(hostStream), window(hostWindow), options(moduleOptions),
      userSettings(settingsFor(options)), unsaved(baseStore(options, userSettings)),
      store(options.storeSettings ? baseStore(options, userSettings) : unsaved), overlay(store),
      ownSound(options.useSound && !options.sound ? machineSound() : nullptr),
      sound(options.sound ? options.sound : ownSound.get()),
      engine({clock, sound, RecorderFiles::native(), KeepAwake::native()}),
      timeLine(stream, engine), transport(stream, engine, timeLine, window),
      naming(window, engine.output.recorder), comparison(stream, engine, transport),
      feed(stream, engine, timeLine, naming, comparison) {}

void Session::begin() {
    cpuFeatures();
    reserveWorkingSet(leastWorkingSet, mostWorkingSet);
    engine.prefillPriority = priorityHighest;
    engine.beep.store(true);
    engine.dspHost.parentWindow = window.handle();

    {
        const SettingsBatch batch{store};
        if (userSettings.presets)
            applyStartPresets(store, *userSettings.presets, activePreset(store));
        else
            applyPreset(store);
    }
    known = storedSettings();
    overlaySettings(options.overlay);
    RegistryNode node{overlay, RegistryNode::read};
    engine.exchangeSettings(node);
    exchangeOwnSettings(node);
    applyRecording();

    engine.start(nullptr, false);
    stream.reset();
    if (naming.switchedOn()) naming.start(true);
    background.begin();
}

void Session::exchangeOwnSettings(RegistryNode& node) {
    const auto exchange = [&node](const char* name, std::atomic<bool>& field) {
        bool value = field.load(std::memory_order_relaxed);
        node.exchangeBool("General", name, value);
        field.store(value, std::memory_order_relaxed);
    };
    node.exchangeBool("General", "showwnd", showWindows);
    exchange("Fade on seek", transport.fadeOnSeek);
    exchange("Fade on stop", transport.fadeOnStop);
    node.exchangeBool("General", "Show Spectrum", showSpectrum);
    double speed = engine.speed.load(std::memory_order_relaxed);
    node.exchangeDouble("Resample", "speed", speed);
    engine.speed.store(speed, std::memory_order_relaxed);
}

void Session::overlaySettings(const std::vector<ModuleOptions::Setting>& settings) {
    for (const ModuleOptions::Setting& setting : settings) {
        const SettingsValue value =
            setting.text ? SettingsValue{*setting.text} : SettingsValue{setting.dword};
        overlay.put(keyOf(setting.section), setting.name, value);
    }
}

void Session::applySettings() {
    RegistryNode node{overlay, RegistryNode::read};
    engine.applySettings(node);
    exchangeOwnSettings(node);
}

void Session::changeSettings(const std::vector<ModuleOptions::Setting>& settings) {
    overlaySettings(settings);
    applySettings();
}

std::vector<std::optional<SettingsValue>> Session::storedSettings() {
    std::vector<std::optional<SettingsValue>> values;
    for (const SettingKey& key : settingKeys())
        values.push_back(store.value(key.key(), key.name));
    return values;
}

bool Session::refreshSettings() {
    std::vector<std::optional<SettingsValue>> stored = storedSettings();
    if (stored == known) return false;
    known = std::move(stored);
    applySettings();
    return true;
}

void Session::applyRecording() {
    if (!options.recordMode) return;
    WavRecorder& recorder = engine.output.recorder;
    recorder.recordmode.store(*options.recordMode, std::memory_order_relaxed);
    engine.output.recordSwitch = *options.recordMode >= 1;
    recorder.setPath(options.recordPath, true, {options.skipFrames, options.frameCount});
}

void Session::end() {
    naming.join();
    background.end();
    engine.drain(playOutMs);
    {
        FxChainEdit edit{engine, 1, nullptr};
        edit.commit();
    }
    engine.dropInput(false);
    engine.output.device.close();
    RegistryNode node{overlay, RegistryNode::write};
    {
        const SettingsBatch batch{store};
        const RecursiveLock::Scope pumping{
            engine.pumpLock}; // the stages read what is narrowed here
        engine.exchangeSettings(node);
        exchangeOwnSettings(node);
    }
    store.flush();
}

void Session::configure() {
    engine.dspHost.configure();
}

ModuleStatus Session::status() {
    const DeviceController& device = engine.output.device;
    ModuleStatus status;
    status.running = true;
    status.paused = stream.paused.load() != 0;
    status.deviceOpen = device.isOpen();
    status.devicePlays = device.running.isSet();
    status.nullTarget = device.isSilent();
    status.fallback = device.isFallback() || (status.nullTarget && !device.isNullTarget());
    status.device = device.openedDeviceName();
    status.hostFormat = stream.format();
    status.outputFormat = engine.output.openedFormat();
    status.queueMs = static_cast<int>(engine.output.bufferedMs());
    const FxTime ahead = engine.writtenEnd() - engine.output.played();
    status.latencyMs = static_cast<int>(std::max<FxTime>((ahead + ticksPerMs - 1) / ticksPerMs, 0));
    status.targetMs = engine.output.target.milliseconds(clock.now());
    status.driftRatio = device.driftRatio();
    status.underflows = sound ? sound->underflows() : 0;
    status.liveBytes = engine.input.arenaStore.liveBytes();
    status.totalBytes = engine.input.arenaStore.totalBytes();
    status.recordingFailed = engine.output.recorder.failed();
    if (engine.output.outputMode != 0) {
        const RecordingWindow recorded{options.skipFrames, options.frameCount};
        status.recordedFrames = recorded.inside(engine.output.writtenEnd());
    }
    return status;
}

} // namespace velorine
