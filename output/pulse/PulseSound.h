#pragma once

#include "foundation/SystemClock.h"
#include "output/SoundSystem.h"
#include "output/pulse/PulseServer.h"

#include <atomic>
#include <memory>
#include <string>

namespace velorine {

/// The sinks of a PulseAudio server, or of one that speaks its protocol. There is no connection and
/// no thread before the first `connect`.
///
/// A server that isn't there is no failure: buffers play silently until it is.
class PulseSound final : public SoundSystem {
public:
    explicit PulseSound(const PulseLibrary& library) : pulse(library) {}

    std::vector<Device> devices() override;
    bool connected() const override { return server != nullptr; }

    /// Waits for the server's answer for a second at most. A sink that it doesn't have gives way to
    /// the default one; without an answer the sink is waited for.
    bool connect(std::string& description, std::string& guid) override;
    void disconnect() override { server.reset(); }
    std::unique_ptr<SoundBuffer> createBuffer(const Format& format) override;
    int underflows() const override { return underflowCount.load(std::memory_order_relaxed); }

private:
    void reachServer();

    const PulseLibrary& pulse;
    const SystemClock clock;
    std::atomic<int> underflowCount{0};  ///< relaxed: a figure to look at
    std::shared_ptr<PulseServer> server; ///< shared with the buffers; null: not connected
    std::string sinkDescription;         ///< of the device that was chosen; empty: the default one
    std::string sinkName;
};

} // namespace velorine
