#include "player/Playback.h"

#include "player/Console.h"
#include "player/Text.h"

#include <algorithm>

namespace velorine {

namespace {

constexpr std::size_t blockWrites = 8; ///< permissions that are decoded in one go
constexpr int seekMs = 5000;
constexpr int volumeStep = 13;  ///< of 255
constexpr int restartMs = 3000; ///< further into a track, "previous" goes to its start

} // namespace

// -- Tracks ------------------------------------------------------------------------------------

bool Playback::begin() {
    if (!openNext(0)) return false;
    host.out.SetVolume(volume);
    startTrack();
    return true;
}

/// Makes the first file from `from` on that can be opened the candidate.
bool Playback::openNext(std::size_t from) {
    for (std::size_t i = from; i < files.size(); ++i)
        if (open(i)) return true;
    return false;
}

/// Makes the last file before `from` that can be opened the candidate.
bool Playback::openPrevious(std::size_t from) {
    while (from-- > 0)
        if (open(from)) return true;
    return false;
}

bool Playback::open(std::size_t which) {
    try {
        candidate.emplace(files[which]);
        candidateIndex = which;
        return true;
    } catch (const AudioFileError& error) {
        report(which, error.what());
        return false;
    }
}

/// The candidate becomes the track.
void Playback::startTrack() {
    file = std::move(candidate);
    candidate.reset();
    index = candidateIndex;
    filled = taken = 0;
    ringsOut = paused = false;
    played = true;
    if (!file->problem().empty()) report(index, file->problem());
    host.open(index, file->format(), file->frames() ? msOf(*file->frames()) : 0);
}

void Playback::report(std::size_t which, const std::string& text) {
    if (failed.insert(which).second) console.say(files[which], text);
}

void Playback::finish() {
    if (!file) return;
    host.close(false);
    file.reset();
}

// -- Data --------------------------------------------------------------------------------------

bool Playback::feed() {
    const std::size_t permitted = host.permitted();
    if (permitted == 0) return false;
    if (taken == filled) {
        block.resize(permitted * blockWrites);
        refill();
        if (filled == 0) return true; // another track has begun
    }
    const std::size_t bytes = std::min(permitted, filled - taken);
    host.write(std::span{block}.subspan(taken, bytes));
    taken += bytes;
    return true;
}

void Playback::refill() {
    taken = 0;
    filled = ringsOut ? 0 : file->read(block);
    if (filled > 0) return;

    if (!ringsOut) {
        if (!file->problem().empty()) report(index, file->problem());
        if (openNext(index + 1)) {
            host.close(true);
            startTrack();
            return;
        }
        ringsOut = true;
    }
    // What the chain and the device hold only comes out as something follows it.
    const std::byte silence{file->format().bits == 8 ? std::byte{0x80} : std::byte{0}};
    std::fill(block.begin(), block.end(), silence);
    filled = block.size() / blockWrites;
}

bool Playback::isOver() {
    if (over || !ringsOut) return over;
    // The time stands at 0 for as long as the track before is heard: of a track that is shorter
    // than a millisecond, or holds nothing, some of the zeros behind it have to be heard.
    over = host.out.GetOutputTime() >= std::max<std::int64_t>(msOf(file->position()), 1);
    return over;
}

// -- Keys --------------------------------------------------------------------------------------

void Playback::obey(Key key) {
    switch (key) {
    case Key::quit:
        over = true;
        break;
    case Key::next:
        if (openNext(index + 1))
            goTo(true);
        else
            over = true;
        break;
    case Key::previous:
        goTo(host.out.GetOutputTime() < restartMs && openPrevious(index));
        break;
    case Key::pause:
        paused = !paused;
        host.out.Pause(paused ? 1 : 0);
        break;
    case Key::forward:
        seekBy(seekMs);
        break;
    case Key::back:
        seekBy(-seekMs);
        break;
    case Key::louder:
        turnVolume(1);
        break;
    case Key::softer:
        turnVolume(-1);
        break;
    }
}

/// To the candidate, or to the start of the track that plays.
void Playback::goTo(bool opened) {
    if (!opened && !open(index)) return;
    host.close(false);
    startTrack();
}

void Playback::seekBy(int ms) {
    const std::int64_t wanted = std::max<std::int64_t>(host.out.GetOutputTime() + ms, 0);
    std::int64_t frame = wanted * file->format().rate / 1000;
    if (file->frames()) frame = std::min(frame, *file->frames());
    if (!file->seek(frame)) {
        console.say(files[index], "cannot be searched");
        return;
    }
    filled = taken = 0;
    ringsOut = false;
    host.out.Flush(static_cast<int>(msOf(file->position())));
}

void Playback::turnVolume(int steps) {
    volume = std::clamp(volume + steps * volumeStep, 0, 255);
    host.out.SetVolume(volume);
}

// -- What is shown -----------------------------------------------------------------------------

PlayState Playback::state() const {
    const ModuleStatus module = moduleStatus();
    PlayState shown;
    shown.state = paused ? "paused" : "playing";
    shown.positionMs = host.out.GetOutputTime();
    if (file->frames()) {
        shown.lengthMs = msOf(*file->frames());
        shown.positionMs = std::min(shown.positionMs, *shown.lengthMs);
    }
    shown.queueMs = module.queueMs;
    shown.hostFormat = file->format();
    if (module.deviceOpen) {
        shown.outputFormat = module.outputFormat;
        shown.device = module.nullTarget ? "null" : module.device;
    }
    shown.title = baseName(files[index]);
    shown.track = index;
    shown.tracks = files.size();
    shown.volume = volume;
    return shown;
}

std::int64_t Playback::msOf(std::int64_t frame) const {
    return frame * 1000 / std::max(file->format().rate, 1);
}

} // namespace velorine
