#include "player/Spectrum.h"

#include "chain/RingAppend.h"
#include "chain/WindowRead.h"
#include "config/RegistryNode.h"
#include "config/UserSettings.h"
#include "kestrix/KestrixStage.h"
#include "player/AudioFile.h"
#include "player/Console.h"
#include "player/Interruption.h"
#include "player/OutputFile.h"
#include "player/RunSettings.h"
#include "player/SpectrumMeter.h"
#include "player/SpectrumPicture.h"

#include <cstring>
#include <filesystem>

namespace velorine {

namespace {

constexpr int framesAtOnce = 65'536;

SampleFormat sampleFormat(const HostFormat& host) {
    SampleFormat format;
    switch (host.bits) {
    case 8:
        format.type = sampleType::int8;
        break;
    case 16:
        format.type = sampleType::int16;
        break;
    case 24:
        format.type = sampleType::int24;
        break;
    case 32:
        format.type = sampleType::int32;
        break;
    default:
        format.type = sampleType::float64;
        break;
    }
    format.channels = host.channels;
    format.rate = host.rate;
    return format;
}

/// A file's way through the processor, with its spectrum on both sides.
class Comparison {
public:
    Comparison(AudioFile& audioFile, SettingsStore& settings)
        : file(audioFile), format(sampleFormat(file.format())) {
        RegistryNode node{settings, RegistryNode::read};
        stage.exchangeSettings(node);
    }

    /// @return false when interrupted
    bool run() {
        std::vector<std::byte> bytes(static_cast<std::size_t>(framesAtOnce) *
                                     static_cast<std::size_t>(bytesPerFrame(format)));
        while (const std::size_t filled = file.read(bytes)) {
            if (interruption::requested()) return false;
            take(bytes.data(), static_cast<int>(filled) / bytesPerFrame(format));
            process();
        }
        return true;
    }

    std::vector<SpectrumCurve> curves() const {
        return {{"before", before.power()}, {"after", after.power()}};
    }

private:
    void take(const std::byte* bytes, int frames) {
        FxBlock block;
        std::memcpy(block.allocate(arena, format, frames), bytes,
                    static_cast<std::size_t>(frames) *
                        static_cast<std::size_t>(bytesPerFrame(format)));
        appendTo(ring, block);
        const SampleFormat wanted{sampleType::float32, 2, format.rate, fullWidth};
        const FrameWindow window = readWindow(ring, converter, wanted, ring.end() - frames, frames);
        before.feed({window.as<float>(), static_cast<std::size_t>(frames) * 2});
    }

    void process() {
        for (FxBlock out; stage.process(arena, out, ring, framesAtOnce); out = FxBlock{})
            after.feed({reinterpret_cast<const float*>(out.data()),
                        static_cast<std::size_t>(out.frames()) * 2});
        const std::int64_t start = stage.inputStartFor(0, FxPos::fromFrame(stage.nextInput));
        while (ring.count() > 1 && ring.oldest().posEnd <= start)
            ring.pop();
    }

    AudioFile& file;
    const SampleFormat format;
    FxArena arena;
    FxRing ring;
    SampleConverterHandle converter;
    KestrixStage stage;
    SpectrumMeter before;
    SpectrumMeter after;
};

} // namespace

ExitCode drawSpectrum(const SpectrumRequest& request, Console& console) {
    interruption::watch();
    try {
        AudioFile file{request.file};
        UserSettings user = openUserSettings({});
        RunSettings settings{user, request.settings};
        if (!settings.flag("Eq", "enable")) {
            console.say("the processor is off; turn it on with --set Eq/enable=true");
            return ExitCode::failed;
        }
        Comparison comparison{file, settings.store()};
        if (!comparison.run()) return ExitCode::interrupted;
        if (!file.problem().empty()) console.say(request.file, file.problem());
        const std::vector<SpectrumCurve> curves = comparison.curves();
        if (curves[0].power.empty() || curves[1].power.empty()) {
            console.say(request.file, "is too short for a spectrum");
            return ExitCode::failed;
        }
        OutputFile picture{request.output};
        if (!drawSpectra(picture.writePath(),
                         std::filesystem::path{request.file}.filename().string() +
                             ", before and after the processor",
                         file.format().rate, curves)) {
            console.say(request.output, "cannot be written");
            return ExitCode::failed;
        }
        picture.commit();
    } catch (const AudioFileError& error) {
        console.say(request.file, error.what());
        return ExitCode::failed;
    } catch (const OutputFileError& error) {
        console.say(request.output, error.what());
        return ExitCode::failed;
    }
    return ExitCode::ok;
}

} // namespace velorine
