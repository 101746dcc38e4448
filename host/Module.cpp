#include "host/Module.h"

#include "foundation/ErrorReport.h"
#include "host/Session.h"

#include <exception>
#include <utility>

namespace velorine {

namespace {

/// Runs an entry point's work on the running session, if there is one. No exception reaches the
/// host: what nobody could handle ends the process, with its text.
template <typename Work>
void onSession(Work&& work) noexcept {
    try {
        if (const std::shared_ptr<Session> session = Module::instance().session()) work(*session);
    } catch (const char* text) {
        endWith(text);
    } catch (const std::exception& error) {
        endWith(error.what());
    }
}

template <typename Work>
int askSession(int otherwise, Work&& work) noexcept {
    int answer = otherwise;
    onSession([&](Session& session) { answer = work(session); });
    return answer;
}

constexpr int openLatencyMs = 5000; ///< what the host has to allow for, always

void config(void*) {
    onSession([](Session& session) { session.configure(); });
}

void about(void*) {}

void init() {
    try {
        Module::instance().init();
    } catch (const char* text) {
        endWith(text);
    } catch (const std::exception& error) {
        endWith(error.what());
    }
}

void quit() {
    try {
        Module::instance().quit();
    } catch (const char* text) {
        endWith(text);
    } catch (const std::exception& error) {
        endWith(error.what());
    }
}

int open(int rate, int channels, int bits, int, int) {
    onSession([=](Session& session) { session.transport.open(rate, channels, bits); });
    return openLatencyMs;
}

void close() {
    onSession([](Session& session) { session.transport.close(); });
}

int write(char* data, int bytes) {
    onSession([=](Session& session) { session.feed.write(data, bytes); });
    kernel().sleep(0);
    return 0;
}

int canWrite() {
    return askSession(0, [](Session& session) { return session.feed.canWrite(); });
}

/// The host then never waits for the tail of a track: that plays out by itself.
int isPlaying() {
    return 0;
}

int pause(int on) {
    return askSession(0, [on](Session& session) { return session.transport.pause(on); });
}

void setVolume(int volume) {
    onSession([volume](Session& session) { session.transport.setVolume(volume); });
}

void setPan(int pan) {
    onSession([pan](Session& session) { session.transport.setPan(pan); });
}

void flush(int ms) {
    onSession([ms](Session& session) { session.transport.flush(ms); });
}

int outputTime() {
    return askSession(0, [](Session& session) { return session.timeLine.outputTime(); });
}

int writtenTime() {
    return askSession(0, [](Session& session) { return session.timeLine.writtenTime(); });
}

} // namespace

Module& Module::instance() {
    static Module* const module = new Module; // the host may call until the process ends
    return *module;
}

Out_Module& Module::record() {
    static char description[] = "Tolvane Labs - Velorine Kestrix Engine v1.00";
    static Out_Module out = {VELORINE_OUT_VERSION,
                             description,
                             665344,
                             nullptr,
                             nullptr,
                             config,
                             about,
                             velorine::init,
                             velorine::quit,
                             open,
                             close,
                             velorine::write,
                             canWrite,
                             isPlaying,
                             velorine::pause,
                             setVolume,
                             setPan,
                             velorine::flush,
                             outputTime,
                             writtenTime};
    return out;
}

std::shared_ptr<Session> Module::session() const {
    const Lock::Scope guard{lock};
    return running;
}

void Module::setOptions(ModuleOptions next) {
    options = std::move(next);
}

void Module::init() {
    if (session()) return;
    window.keep(record().hMainWindow);
    auto started = std::make_shared<Session>(stream, window, options);
    started->begin();
    const Lock::Scope guard{lock};
    running = std::move(started);
}

void Module::quit() {
    const std::shared_ptr<Session> ending = session();
    if (!ending) return;
    ending->end();
    const Lock::Scope guard{lock};
    running.reset();
}

void setModuleOptions(ModuleOptions options) {
    Module::instance().setOptions(std::move(options));
}

void changeSettings(const std::vector<ModuleOptions::Setting>& settings) {
    onSession([&](Session& session) { session.changeSettings(settings); });
}

bool refreshSettings() {
    return askSession(0, [](Session& session) { return session.refreshSettings() ? 1 : 0; }) != 0;
}

ModuleStatus moduleStatus() {
    const std::shared_ptr<Session> session = Module::instance().session();
    return session ? session->status() : ModuleStatus{};
}

} // namespace velorine

extern "C" Out_Module* winampGetOutModule() {
    return &velorine::Module::instance().record();
}
