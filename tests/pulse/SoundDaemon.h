#pragma once

#include "tests/output/TemporaryFolder.h"
#include "tests/pulse/Child.h"

#include <memory>
#include <string>

namespace velorine::test {

/// A sound server of the test's own, with sinks that play in real time and to nobody. While it
/// lives, it is the one that this process and its children talk to; there is no other.
class SoundDaemon {
public:
    struct Sink {
        std::string name; ///< described by the same word
        int rate = 48000; ///< Hz
        int channels = 2;
        std::string format = "s32le";

        /// Its speakers, in the order of a WAVE file of as many channels.
        std::string channelMap() const;
    };

    SoundDaemon(); ///< the server runs, without a sink
    ~SoundDaemon();
    SoundDaemon(const SoundDaemon&) = delete;
    SoundDaemon& operator=(const SoundDaemon&) = delete;

    void start();  ///< and waits until it answers
    void kill();   ///< at once, as a crash would
    void freeze(); ///< lets it stand, until `thaw`
    void thaw();

    /// @return what the server calls it from now on, for `removeSink`
    std::string addSink(const Sink& sink);
    void removeSink(const std::string& module);
    void makeDefault(const std::string& sink);
    void suspend(const std::string& sink, bool suspended);

    /// Runs `pactl` with these words. @return what it prints
    std::string control(const std::vector<std::string>& words) const;

private:
    TemporaryFolder folder;
    std::unique_ptr<Child> server;
};

} // namespace velorine::test
