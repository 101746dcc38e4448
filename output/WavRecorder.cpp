#include "output/WavRecorder.h"

#include "foundation/PriorityScope.h"
#include "output/RecordingsFolder.h"

#include <algorithm>
#include <utility>

namespace velorine {

WavRecorder::WavRecorder(RecorderFiles& files, std::function<bool()> engineIdle)
    : file(files), closer(*this, std::move(engineIdle)) {}

void WavRecorder::start() {
    closer.start(priorityNormal, false);
}

void WavRecorder::stop() {
    closer.join();
}

void WavRecorder::write(const void* dataPtr, std::size_t byteCount) {
    const RecursiveLock::Scope scope{lock};
    if (active.load(std::memory_order_relaxed) == 0) {
        closeFile();
        unbroken = 0;
        return;
    }

    const SampleFormat format{streamFormat, streamChannels, streamRate};
    if (bytesPerFrame(format) <= 0) return;
    const auto frameBytes = static_cast<std::size_t>(bytesPerFrame(format));
    const auto frames = static_cast<std::int64_t>(byteCount / frameBytes);
    const std::int64_t skipped = std::clamp<std::int64_t>(window.skipFrames - delivered, 0, frames);
    const std::int64_t recorded = window.inside(delivered + frames) - window.inside(delivered);
    delivered += frames;
    unbroken += frames;
    if (recorded == 0 && frames > 0) return;

    if (!openFile(format)) {
        unbroken = 0;
        return;
    }
    noteWrite();
    if (file.format() != format) file.restart(format);
    const std::span all{static_cast<const std::byte*>(dataPtr), byteCount};
    if (!file.append(all.subspan(static_cast<std::size_t>(skipped) * frameBytes,
                                 static_cast<std::size_t>(recorded) * frameBytes)))
        unbroken = 0;
    lastWriteTick.store(kernel().tickCount(), std::memory_order_relaxed);
}

void WavRecorder::rewind(std::int64_t frames) {
    const RecursiveLock::Scope scope{lock};
    const std::int64_t back = std::clamp<std::int64_t>(frames, 0, unbroken);
    const std::int64_t recorded = window.inside(delivered) - window.inside(delivered - back);
    delivered -= back;
    unbroken -= back;
    if (recorded == 0) return;

    if (!file.isOpen() && !file.openExisting(file.format())) return;
    noteWrite();
    file.takeBack(recorded);
}

void WavRecorder::setPath(std::string_view recordingPath, bool overwriteFile,
                          RecordingWindow recordingWindow) {
    const RecursiveLock::Scope scope{lock};
    closeFile();
    file.path = recordingPath;
    file.forgetFailure();
    overwrite = overwriteFile;
    window = recordingWindow;
    delivered = 0;
    unbroken = 0;
}

void WavRecorder::close() {
    const RecursiveLock::Scope scope{lock};
    closeFile();
}

bool WavRecorder::isOpen() const {
    const RecursiveLock::Scope scope{lock};
    return file.isOpen();
}

std::string WavRecorder::path() const {
    const RecursiveLock::Scope scope{lock};
    return std::string{file.path.view()};
}

std::uint32_t WavRecorder::msSinceWrite() const {
    return kernel().tickCount() - lastWriteTick.load(std::memory_order_relaxed);
}

bool WavRecorder::openFile(const SampleFormat& format) {
    if (file.isOpen()) return true;
    if (file.path.empty()) file.path = recordingsFolder() + "velorine.wav";
    const bool isOpen = (!overwrite && file.openExisting(format)) || file.create(format);
    overwrite = false;
    return isOpen;
}

void WavRecorder::closeFile() {
    file.finish();
    closer.enabled.reset();
}

/// Lets the closing thread run. A write that follows within the same millisecond wakes nobody: it
/// finds no pause yet, and a render at full speed makes thousands of them in a second.
void WavRecorder::noteWrite() {
    const std::uint32_t now = kernel().tickCount();
    const bool isNewTick = lastWriteTick.exchange(now, std::memory_order_relaxed) != now;
    if (isNewTick || !closer.enabled.isSet()) closer.wake.set();
    closer.enabled.set();
}

} // namespace velorine
