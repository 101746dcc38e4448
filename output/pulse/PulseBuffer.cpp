#include "output/pulse/PulseBuffer.h"

#include "foundation/SystemClock.h"
#include "output/pulse/PulseFormat.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace velorine {

namespace {

constexpr FxTime stallTime = ticksPerSecond / 2; ///< without progress, the clock takes over
constexpr int startMs = 1000;                    ///< for a sink to wake up
constexpr FxTime reopenTime = ticksPerSecond;    ///< between two tries for a stream
constexpr int lateMs = 100;                      ///< that a stop may come too early
constexpr FxTime reportPeriod = 40 * ticksPerMs;

} // namespace

PulseBuffer::PulseBuffer(std::shared_ptr<PulseServer> pulseServer, const SystemClock& systemClock,
                         const SoundSystem::Format& wanted, const PulseStream::Shape& streamShape,
                         std::string sinkDescription, std::string sinkName)
    : server(std::move(pulseServer)), clock(systemClock), bufferFrames(wanted.bufferFrames),
      rate(wanted.rate), wantedDescription(std::move(sinkDescription)),
      wantedName(std::move(sinkName)), shape(streamShape),
      silence(wanted.containerBits == 8 ? std::byte{0x80} : std::byte{0}),
      memory(static_cast<std::size_t>(bufferFrames) * static_cast<std::size_t>(shape.frameBytes),
             silence),
      gains(wanted.formatTag, wanted.containerBits, sidesOf(shape.map)), heard(rate) {
    const PulseServer::Scope guard{*server};
    server->addListener(*this);
    openStream();
}

PulseBuffer::~PulseBuffer() {
    const PulseServer::Scope guard{*server};
    server->removeListener(*this);
    closeStream();
}

bool PulseBuffer::waitForStream(int ms) {
    const PulseServer::Scope guard{*server};
    if (!stream) return true;
    server->waitUntil(ms, [this] { return !stream || stream->isReady(); });
    return stream || !server->isReady();
}

// -- The stream --------------------------------------------------------------------------------

/// Has a stream made if there is something to play on.
void PulseBuffer::openStream() {
    if (stream || !server->isReady()) return;
    std::string sinkName;
    if (!wantedDescription.empty() || !wantedName.empty()) {
        const PulseServer::Sink* const sink = server->findSink(wantedDescription, wantedName);
        if (!sink) return;
        sinkName = sink->name;
    } else if (server->sinks().empty()) {
        return;
    }
    streamOpened = clock.now();
    Owner& owner = *this;
    stream = std::make_unique<PulseStream>(*server, clock, owner, shape, sinkName);
    if (stream->isLost()) closeStream();
}

void PulseBuffer::closeStream() {
    stream.reset();
}

void PulseBuffer::streamReady() {
    if (!playing) return;
    stream->setCorked(false);
    // Only a stream that isn't corked learns that its sink plays again.
    if (mover == Mover::nothing || !stream->isSuspended()) beginStream();
}

void PulseBuffer::streamLost() {
    if (playing && mover != Mover::clock) goOnAlone(clock.now(), cursorNow());
    closeStream();
}

void PulseBuffer::streamSuspended() {
    if (!playing || !stream->isReady()) return;
    if (!stream->isSuspended()) {
        if (mover == Mover::clock) beginStream();
    } else if (mover == Mover::stream) {
        leaveStream(clock.now(), cursorNow());
    }
}

/// From here on the stream moves the cursor.
void PulseBuffer::beginStream() {
    const FxTime now = clock.now();
    streamStart = sentEnd = cursorNow();
    heard.begin(now);
    started = false;
    mover = Mover::stream;
    feed();
}

/// From here on the clock moves the cursor, as if it had done so from frame `from` on since
/// `since`.
void PulseBuffer::goOnAlone(FxTime since, std::int64_t from) {
    aloneFrom = from;
    moverSince = since;
    mover = Mover::clock;
}

/// As `goOnAlone`, with another stream to come back to: what the old one holds will be out of place
/// by the time that its sink plays again.
void PulseBuffer::leaveStream(FxTime since, std::int64_t from) {
    goOnAlone(since, from);
    closeStream();
    openStream();
}

/// Notices a stream that has come to a stand, and tries for one where there is none.
void PulseBuffer::lookAfterStream() {
    if (!playing) return;
    const FxTime now = clock.now();
    if (mover != Mover::clock) {
        HeardFrames::Progress progress{moverSince, 0};
        if (mover == Mover::stream) progress = heard.lastProgress();
        if (stream) stream->askForReport();
        if (now - progress.at < stallTime) return;
        leaveStream(progress.at, streamStart + progress.frames);
    }
    if (!stream && now - streamOpened >= reopenTime) openStream();
}

// -- The cursor --------------------------------------------------------------------------------

std::int64_t PulseBuffer::cursorNow() {
    const FxTime now = clock.now();
    if (mover == Mover::stream)
        cursor = std::max(cursor, streamStart + heard.at(now, sentEnd - streamStart));
    else if (mover == Mover::clock)
        cursor = std::max(cursor, aloneFrom + (now - moverSince) * rate / ticksPerSecond);
    return cursor;
}

bool PulseBuffer::playCursor(int& frame) {
    const PulseServer::Scope guard{*server};
    lookAfterStream();
    frame = static_cast<int>((base + cursorNow()) % bufferFrames);
    return true;
}

int PulseBuffer::firmFrames() {
    const PulseServer::Scope guard{*server};
    if (mover != Mover::stream) return 0;
    const std::int64_t firmEnd = streamStart + heard.firmEnd(clock.now(), sentEnd - streamStart);
    return static_cast<int>(std::max<std::int64_t>(firmEnd - cursorNow(), 0));
}

bool PulseBuffer::away() {
    const PulseServer::Scope guard{*server};
    lookAfterStream();
    return playing ? mover == Mover::clock : !stream;
}

void PulseBuffer::streamReported(const HeardFrames::Report& report) {
    if (mover != Mover::stream) return;
    heard.take(report);
    ++reports;
    server->signal();
    if (report.takenFrames > 0) streamStarted();
}

void PulseBuffer::streamStarted() {
    started = true;
    server->signal();
}

// -- Playing -----------------------------------------------------------------------------------

SoundBuffer::Result PulseBuffer::play() {
    const PulseServer::Scope guard{*server};
    if (playing) return Result::ok;
    playing = true;
    mover = Mover::nothing;
    started = false;
    moverSince = clock.now();
    openStream();
    if (!stream)
        goOnAlone(moverSince, cursor);
    else if (stream->isReady())
        streamReady();
    server->waitUntil(startMs, [this] { return mover == Mover::clock || started; });
    if (mover != Mover::clock && !started) leaveStream(clock.now(), cursor);
    return Result::ok;
}

/// End of the last frame that isn't silent, of those that are due or were just now.
std::int64_t PulseBuffer::soundEnd() const {
    const auto isSilent = [this](std::byte byte) { return byte == silence; };
    std::vector<std::byte> frame(static_cast<std::size_t>(shape.frameBytes));
    const std::int64_t late = std::int64_t{rate} * lateMs / 1000;
    const std::int64_t begin = std::max(cursor - late, streamStart);
    for (std::int64_t end = cursor + late; end > begin; --end) {
        copyOut(end - 1, frame);
        if (!std::all_of(frame.begin(), frame.end(), isSilent)) return end;
    }
    return begin;
}

/// Lets the last of the sound be heard: who stops a buffer has reckoned that it was, and is early
/// by as much as the server stood still in between.
void PulseBuffer::playOut() {
    const FxTime deadline = clock.now() + 2 * lateMs * ticksPerMs;
    cursorNow();
    const std::int64_t end = soundEnd();
    gains.set(sentVolume, sentPan); // a device that is stopped is muted first
    while (mover == Mover::stream && clock.now() < deadline) {
        const std::uint32_t known = reports;
        stream->askForReport();
        server->waitUntil(lateMs, [&] { return mover != Mover::stream || reports != known; });
        const std::int64_t left =
            end - streamStart - heard.reckoned(clock.now(), sentEnd - streamStart);
        if (left <= 0) break;
        server->waitUntil(static_cast<int>(std::min<std::int64_t>(left * 1000 / rate + 1, lateMs)),
                          [this] { return mover != Mover::stream; });
    }
    gains.set(volume, pan);
}

void PulseBuffer::stop() {
    const PulseServer::Scope guard{*server};
    if (!playing) return;
    if (mover == Mover::stream) playOut();
    base = static_cast<int>((base + cursorNow()) % bufferFrames);
    cursor = 0;
    playing = false;
    mover = Mover::nothing;
    closeStream(); // with all that is on its way: the next one begins empty
}

void PulseBuffer::setPosition(int frame) {
    const PulseServer::Scope guard{*server};
    const bool wasPlaying = playing;
    stop();
    base = std::clamp(frame, 0, bufferFrames - 1);
    openStream(); // ready before it is needed
    if (wasPlaying) play();
}

void PulseBuffer::setVolume(int hundredthsDb) {
    const PulseServer::Scope guard{*server};
    volume = hundredthsDb;
    gains.set(volume, pan);
}

void PulseBuffer::setPan(int hundredthsDb) {
    const PulseServer::Scope guard{*server};
    pan = hundredthsDb;
    gains.set(volume, pan);
}

// -- Samples -----------------------------------------------------------------------------------

SoundBuffer::Result PulseBuffer::lock(int startFrame, int frames, Regions& regions) {
    if (startFrame < 0 || startFrame >= bufferFrames || frames > bufferFrames)
        return Result::failed;
    server->lock(); // until `unlock`: the mainloop may be just about to send these frames
    lockedStart = startFrame;
    const int first = std::min(frames, bufferFrames - startFrame);
    regions = {memory.data() + std::ptrdiff_t{startFrame} * shape.frameBytes, first,
               frames > first ? memory.data() : nullptr, frames - first};
    return Result::ok;
}

void PulseBuffer::unlock(const Regions& regions) {
    if (mover == Mover::stream) {
        const std::int64_t from = placeOf(lockedStart);
        const std::int64_t until = from + regions.firstFrames + regions.secondFrames;
        const std::int64_t changed = std::max({from, cursorNow(), streamStart});
        // The sink itself may give some of it back; what it doesn't comes too late.
        if (changed < std::min(until, sentEnd)) send(changed, sentEnd, sentEnd - changed);
    }
    server->unlock();
}

/// Frame that stands at `loopFrame`: the next that is played from there, or a late one.
std::int64_t PulseBuffer::placeOf(int loopFrame) {
    const std::int64_t now = cursorNow();
    std::int64_t ahead = (loopFrame - (base + now) % bufferFrames + bufferFrames) % bufferFrames;
    // Never filled so far ahead: a quarter of the loop is kept free of audio.
    if (ahead >= bufferFrames - bufferFrames / 5) ahead -= bufferFrames;
    return now + ahead;
}

void PulseBuffer::streamWants() {
    if (mover == Mover::stream) feed();
}

/// Gives the server what it has room for.
void PulseBuffer::feed() {
    const std::int64_t most = cursorNow() + bufferFrames / 2 - sentEnd;
    const std::int64_t frames = std::min<std::int64_t>(stream->roomFrames(), most);
    if (frames > 0) send(sentEnd, sentEnd + frames, 0);
    const FxTime now = clock.now();
    if (now - reportAsked < reportPeriod) return;
    reportAsked = now;
    stream->askForReport();
}

/// Sends frames, the first of them `back` before the end of what was sent.
void PulseBuffer::send(std::int64_t from, std::int64_t until, std::int64_t back) {
    portion.resize(static_cast<std::size_t>(until - from) *
                   static_cast<std::size_t>(shape.frameBytes));
    copyOut(from, portion);
    gains.apply(portion);
    stream->write(portion, back);
    sentEnd = until;
    sentVolume = volume;
    sentPan = pan;
}

void PulseBuffer::copyOut(std::int64_t from, std::span<std::byte> out) const {
    const auto start = static_cast<std::size_t>((base + from) % bufferFrames) *
                       static_cast<std::size_t>(shape.frameBytes);
    const std::size_t first = std::min(out.size(), memory.size() - start);
    std::memcpy(out.data(), memory.data() + start, first);
    if (first < out.size()) std::memcpy(out.data() + first, memory.data(), out.size() - first);
}

} // namespace velorine
