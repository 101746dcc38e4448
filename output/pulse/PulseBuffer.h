#pragma once

#include "output/SoundSystem.h"
#include "output/pulse/ChannelGains.h"
#include "output/pulse/HeardFrames.h"
#include "output/pulse/PulseServer.h"
#include "output/pulse/PulseStream.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace velorine {

class SystemClock;

/// A looping buffer in our own memory, of which the server gets the next 40 ms at a time.
///
/// Frames count from the last start of the buffer. While no sink plays them (the server is gone,
/// the sink was removed or is suspended) the cursor goes on with the clock; once one does, a new
/// stream begins at the cursor, so that nothing old is heard. What was sent already and is written
/// again is replaced at the server.
class PulseBuffer final : public SoundBuffer, PulseServer::Listener, PulseStream::Owner {
public:
    /// @param streamShape                what the server calls the wanted format
    /// @param sinkDescription, sinkName  of the sink to play on, which is waited for; both empty:
    ///                                   the default one, whichever that is
    PulseBuffer(std::shared_ptr<PulseServer> pulseServer, const SystemClock& systemClock,
                const SoundSystem::Format& wanted, const PulseStream::Shape& streamShape,
                std::string sinkDescription, std::string sinkName);
    ~PulseBuffer() override;

    /// Gives the stream `ms` to get ready. @return false when the server refused it
    bool waitForStream(int ms);

    Result lock(int startFrame, int frames, Regions& regions) override;
    void unlock(const Regions& regions) override;
    bool playCursor(int& frame) override;

    /// Waits until the sink takes the first samples: one that has rested may need a while, and what
    /// the clock plays meanwhile would be lost. A few ms mostly, a second at most.
    Result play() override;
    void stop() override; ///< lets sound that is due be heard, 100 ms of it at most
    void setPosition(int frame) override;
    void setVolume(int hundredthsDb) override;
    void setPan(int hundredthsDb) override;
    bool restore() override { return true; }
    int firmFrames() override;
    bool away() override;

private:
    void serverChanged() override { openStream(); }
    void streamReady() override;
    void streamLost() override;
    void streamStarted() override;
    void streamWants() override;
    void streamSuspended() override;
    void streamReported(const HeardFrames::Report& report) override;

    void openStream();
    void closeStream();
    void beginStream();
    void goOnAlone(FxTime since, std::int64_t from);
    void leaveStream(FxTime since, std::int64_t from);
    void lookAfterStream();
    std::int64_t cursorNow();
    std::int64_t placeOf(int loopFrame);
    std::int64_t soundEnd() const;
    void playOut();
    void feed();
    void send(std::int64_t from, std::int64_t until, std::int64_t back);
    void copyOut(std::int64_t from, std::span<std::byte> out) const;

    const std::shared_ptr<PulseServer> server;
    const SystemClock& clock;
    const int bufferFrames;
    const int rate; ///< Hz
    const std::string wantedDescription;
    const std::string wantedName;
    const PulseStream::Shape shape;
    const std::byte silence;

    // All guarded by the mainloop's lock.
    std::vector<std::byte> memory;
    std::vector<std::byte> portion; ///< on its way to the server
    ChannelGains gains;
    int volume = 0; ///< hundredths of a decibel
    int pan = 0;
    int sentVolume = 0; ///< as the last portion was sent
    int sentPan = 0;
    std::unique_ptr<PulseStream> stream; ///< null: there is nothing to play on
    FxTime streamOpened = 0;             ///< or tried last
    FxTime reportAsked = 0;
    std::uint32_t reports = 0; ///< that came
    bool started = false;      ///< the sink has taken samples of the stream

    /// What moves the cursor.
    enum class Mover { nothing, stream, clock };
    Mover mover = Mover::nothing;
    bool playing = false;
    int base = 0;                 ///< loop frame of frame 0
    std::int64_t cursor = 0;      ///< frames, as of the last look; never goes back
    std::int64_t streamStart = 0; ///< frame that the stream began with
    std::int64_t sentEnd = 0;     ///< end of what the stream was given
    HeardFrames heard;
    FxTime moverSince = 0; ///< of `clock`: frame `aloneFrom` was then; else: the start
    std::int64_t aloneFrom = 0;
    int lockedStart = 0; ///< loop frame
};

} // namespace velorine
