#pragma once

#include "host/ModuleOptions.h"
#include "tests/pulse/LiveHost.h"
#include "tests/pulse/Recorder.h"
#include "tests/pulse/SoundDaemon.h"
#include "tests/support/Heard.h"

#include <string>
#include <vector>

namespace velorine::test {

/// The stretches between the first and the last sound of a recording.
std::vector<Stretch> soundIn(const Recorder& recorder, const LiveHost& host);

/// Empty if the programme's frames come in order, each once, with at most `gaps` silent breaks in
/// it and a few more that a busy machine may cause, which lose nothing; else what is wrong.
std::string continuityFault(const std::vector<Stretch>& list, int gaps);

/// Waits until frame `frame` of segment `segment` has been recorded.
bool awaitFrame(const Recorder& recorder, const LiveHost& host, int segment, int frame);

/// A server with one sink, a recorder on it, and a host. Sink and programme have one format.
struct Listening {
    explicit Listening(const LiveHost::Setup& setup = {}) : host(setup) {}

    std::vector<Stretch> sound() const { return soundIn(recorder, host); }
    bool awaitFrame(int segment, int frame) const {
        return test::awaitFrame(recorder, host, segment, frame);
    }

    SoundDaemon daemon;
    const SoundDaemon::Sink sink{"First"};
    const std::string module = daemon.addSink(sink);
    Recorder recorder{sink};
    LiveHost host;
};

} // namespace velorine::test
