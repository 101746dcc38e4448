#include "tests/pulse/SoundDaemon.h"

#include "tests/pulse/Await.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace velorine::test {

namespace {

bool answersAt(const std::string& path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const bool answers =
        connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    return answers;
}

} // namespace

std::string SoundDaemon::Sink::channelMap() const {
    switch (channels) {
    case 1:
        return "mono";
    case 2:
        return "front-left,front-right";
    case 6:
        return "front-left,front-right,front-center,lfe,rear-left,rear-right";
    case 8:
        return "front-left,front-right,front-center,lfe,rear-left,rear-right,side-left,side-right";
    default:
        throw std::invalid_argument("no such sink");
    }
}

SoundDaemon::SoundDaemon() {
    mkdir(folder.path("run").c_str(), 0700);
    setenv("HOME", folder.path("").c_str(), 1);
    setenv("XDG_RUNTIME_DIR", folder.path("run").c_str(), 1);
    setenv("PULSE_SERVER", ("unix:" + folder.path("socket")).c_str(), 1);
    start();
}

SoundDaemon::~SoundDaemon() {
    kill();
}

void SoundDaemon::start() {
    const std::string socketPath = folder.path("socket");
    server = std::make_unique<Child>(
        std::vector<std::string>{
            "pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--disallow-exit=no",
            "--use-pid-file=no", "--realtime=no", "--high-priority=yes", "--log-target=null", "-L",
            "module-native-protocol-unix auth-anonymous=1 socket=" + socketPath},
        Child::Output::dropped);
    if (!comesTrue([&] { return answersAt(socketPath) || server->hasEnded(); }) ||
        server->hasEnded())
        throw std::runtime_error("there is no sound server");
}

void SoundDaemon::kill() {
    server.reset();
    unlink(folder.path("socket").c_str());
}

void SoundDaemon::freeze() {
    server->send(SIGSTOP);
}

void SoundDaemon::thaw() {
    server->send(SIGCONT);
}

std::string SoundDaemon::control(const std::vector<std::string>& words) const {
    std::vector<std::string> all{"pactl"};
    all.insert(all.end(), words.begin(), words.end());
    return outputOf(all);
}

std::string SoundDaemon::addSink(const Sink& sink) {
    // Where a sink takes samples back, what its monitor records isn't what it played.
    std::string module =
        control({"load-module", "module-null-sink", "norewinds=1", "sink_name=" + sink.name,
                 "sink_properties=device.description=" + sink.name, "format=" + sink.format,
                 "rate=" + std::to_string(sink.rate), "channels=" + std::to_string(sink.channels),
                 "channel_map=" + sink.channelMap()});
    module.erase(module.find_last_not_of('\n') + 1);
    return module;
}

void SoundDaemon::removeSink(const std::string& module) {
    control({"unload-module", module});
}

void SoundDaemon::makeDefault(const std::string& sink) {
    control({"set-default-sink", sink});
}

void SoundDaemon::suspend(const std::string& sink, bool suspended) {
    control({"suspend-sink", sink, suspended ? "1" : "0"});
}

} // namespace velorine::test
