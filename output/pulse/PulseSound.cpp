#include "output/pulse/PulseSound.h"

#include "output/pulse/PulseBuffer.h"
#include "output/pulse/PulseFormat.h"

namespace velorine {

namespace {
constexpr int answerMs = 1000; ///< that a server, or a stream, is waited for
}

/// Connects, and leaves the server a second to answer.
void PulseSound::reachServer() {
    if (!server) server = std::make_shared<PulseServer>(pulse, underflowCount);
    const PulseServer::Scope guard{*server};
    server->waitUntil(answerMs, [this] { return server->hasAnswered(); });
}

std::vector<SoundSystem::Device> PulseSound::devices() {
    reachServer();
    const PulseServer::Scope guard{*server};
    std::vector<Device> list;
    for (const PulseServer::Sink& sink : server->sinks()) {
        if (sink.name == server->defaultSink())
            list.insert(list.begin(), {sink.description, ""});
        else
            list.push_back({sink.description, sink.name});
    }
    return list;
}

bool PulseSound::connect(std::string& description, std::string& guid) {
    reachServer();
    const PulseServer::Scope guard{*server};
    if (server->isReady() && !server->findSink(description, guid)) {
        description.clear();
        guid.clear();
    }
    sinkDescription = description;
    sinkName = guid;
    return true;
}

std::unique_ptr<SoundBuffer> PulseSound::createBuffer(const Format& format) {
    const auto shape = shapeOf(pulse, format);
    if (!server || !shape) return nullptr;
    auto buffer =
        std::make_unique<PulseBuffer>(server, clock, format, *shape, sinkDescription, sinkName);
    if (!buffer->waitForStream(answerMs)) return nullptr;
    return buffer;
}

} // namespace velorine
