#include "player/RenderJob.h"

#include "foundation/Kernel.h"
#include "player/AudioFile.h"
#include "player/Console.h"
#include "player/Interruption.h"
#include "player/ModuleHost.h"
#include "player/OutputFile.h"

#include <algorithm>
#include <optional>

namespace velorine {

namespace {

constexpr std::size_t blockBytes = 8 * 9216; ///< decoded in one go; some writes of a host's size
constexpr std::int64_t headerBytes = 44;
constexpr std::int64_t largestWav = 0xFFFFFFFF - headerBytes; ///< bytes of data

AudioFile openInput(const std::string& input) {
    try {
        return AudioFile{input};
    } catch (const AudioFileError& error) {
        throw RenderError(input, error.what());
    }
}

std::byte silenceOf(const HostFormat& format) {
    return format.bits == 8 ? std::byte{0x80} : std::byte{0};
}

} // namespace

RenderJob::RenderJob(std::vector<std::string> inputFiles, std::string outputFile)
    : inputs(std::move(inputFiles)), output(std::move(outputFile)) {
    for (const std::string& input : inputs)
        lookAt(input);
}

void RenderJob::lookAt(const std::string& input) {
    const AudioFile file = openInput(input);
    if (!file.problem().empty()) throw RenderError(input, file.problem());
    if (!file.frames()) throw RenderError(input, "does not say its length; it may be cut short");
    if (isSameFile(input, output)) throw RenderError(input, "would be replaced by its recording");
    if (programme == 0) format = file.format();
    if (file.format() != format)
        throw RenderError(input, "is " + describe(file.format()) + ", but " + inputs.front() +
                                     " is " + describe(format) +
                                     ": one file takes one format (-o DIR/ makes a file each)");
    programme += *file.frames();
}

bool RenderJob::run(const std::vector<ModuleOptions::Setting>& settings, const RenderChain& chain,
                    Console& console) {
    window = renderWindow(programme, format.rate, chain);
    const auto frameBytes = static_cast<std::size_t>(format.bytesPerFrame());
    block.resize(blockBytes / frameBytes * frameBytes);
    silence.assign(block.size(), silenceOf(format));
    try {
        OutputFile target{output};
        ModuleOptions options;
        options.overlay = settings;
        options.storeSettings = false;
        options.recordMode = 1;
        options.recordPath = target.writePath();
        options.skipFrames = window.skipFrames;
        options.frameCount = window.frameCount;

        ModuleStatus module;
        {
            ModuleHost host{options, inputs};
            RenderProgress progress{console, output, programme, format.rate};
            if (!record(host, progress)) return false;
            module = moduleStatus();
        }
        checkRecording(module);
        const std::int64_t whole =
            headerBytes + window.frameCount * bytesPerFrame(module.outputFormat);
        if (target.size() >= 0 && target.size() != whole)
            throw RenderError(output, "could not be written whole");
        target.commit();
        return true;
    } catch (const OutputFileError& error) {
        throw RenderError(output, error.what());
    }
}

/// @return false when a signal ended it
bool RenderJob::record(ModuleHost& host, RenderProgress& progress) {
    host.open(0, format, programme * 1000 / std::max(format.rate, 1));
    if (!writeZeros(host, window.leadFrames)) return false;
    for (const std::string& input : inputs)
        if (!writeFile(host, input, progress)) return false;
    // No close: its fade into silence would only be computed and thrown away. Quitting completes
    // the file.
    return writeTail(host);
}

bool RenderJob::writeZeros(ModuleHost& host, std::int64_t frames) {
    const std::int64_t blockFrames =
        static_cast<std::int64_t>(silence.size()) / format.bytesPerFrame();
    while (frames > 0) {
        const std::int64_t piece = std::min(frames, blockFrames);
        const auto bytes = static_cast<std::size_t>(piece * format.bytesPerFrame());
        if (!write(host, std::span{silence}.first(bytes))) return false;
        frames -= piece;
    }
    return true;
}

bool RenderJob::writeFile(ModuleHost& host, const std::string& input, RenderProgress& progress) {
    AudioFile file = openInput(input);
    if (file.format() != format) throw RenderError(input, "changed while it was read");
    for (;;) {
        const std::size_t bytes = file.read(block);
        if (bytes == 0) break;
        if (!write(host, std::span{block}.first(bytes))) return false;
        progress.advance(static_cast<std::int64_t>(bytes) / format.bytesPerFrame());
        checkRecording(moduleStatus());
    }
    if (!file.problem().empty()) throw RenderError(input, file.problem());
    return true;
}

/// What the chain holds back comes out as zeros follow it.
bool RenderJob::writeTail(ModuleHost& host) {
    for (;;) {
        const ModuleStatus module = moduleStatus();
        checkRecording(module);
        if (module.recordedFrames >= window.frameCount) return true;
        const std::size_t bytes = std::min(host.permitted(), silence.size());
        if (bytes > 0)
            host.write(std::span{silence}.first(bytes));
        else
            kernel().sleep(0);
        if (interruption::requested()) return false;
    }
}

/// Writes all of it, as the module permits. The time until it does belongs to the engine's own
/// thread: a sleep would leave that one without input.
bool RenderJob::write(ModuleHost& host, std::span<const std::byte> frames) {
    while (!frames.empty()) {
        if (interruption::requested()) return false;
        const std::size_t bytes = std::min(host.permitted(), frames.size());
        if (bytes == 0) {
            kernel().sleep(0);
            continue;
        }
        host.write(frames.first(bytes));
        frames = frames.subspan(bytes);
    }
    return true;
}

void RenderJob::checkRecording(const ModuleStatus& module) const {
    if (module.recordingFailed)
        throw RenderError(output, "could not be written; is the disk full?");
    if (module.recordedFrames > 0 &&
        window.frameCount > largestWav / std::max(bytesPerFrame(module.outputFormat), 1))
        throw RenderError(output, "would be longer than a WAV file can be, 4 GiB");
}

} // namespace velorine
