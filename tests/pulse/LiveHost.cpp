#include "tests/pulse/LiveHost.h"

#include "host/Module.h"
#include "tests/pulse/Await.h"
#include "tests/support/Signals.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace velorine::test {

namespace {
constexpr int rate = 48000;
constexpr int channels = 2;
constexpr std::int32_t segmentRoom = 4'000'000; // values of one segment
} // namespace

LiveHost::LiveHost(const Setup& setup) : out(*winampGetOutModule()) {
    ModuleOptions options;
    options.store = &store;
    const auto put = [&options](const char* section, const char* name, bool value) {
        options.overlay.push_back({section, name, value ? 1U : 0U, {}});
    };
    put("General", "beep", false);
    put("General", "Fade on seek", setup.fadeOnSeek);
    put("General", "Fade on stop", setup.fadeOnStop);
    put("Eq", "enable", false);
    options.overlay.push_back({"General", "Audio Device", 0, setup.device});
    setModuleOptions(options);
    window.send = answer;
    window.user = this;
    out.hMainWindow = &window;
    out.Init();
}

LiveHost::~LiveHost() {
    out.Quit();
    out.hMainWindow = nullptr;
    setModuleOptions({});
}

std::intptr_t LiveHost::answer(VelorineHostWindow* window, unsigned, std::uintptr_t,
                               std::intptr_t lParam) {
    constexpr std::intptr_t goesOnToNext = 400;
    return lParam == goesOnToNext && static_cast<LiveHost*>(window->user)->answerGoesOn ? 1 : 0;
}

void LiveHost::open(int wantedRate, int wantedChannels, int bits) {
    frameBytes = wantedChannels * bits / 8;
    out.Open(wantedRate, wantedChannels, bits, 0, 0);
}

void LiveHost::close(bool goesOn) {
    answerGoesOn = goesOn;
    out.Close();
}

void LiveHost::write(const void* bytes, std::size_t count) {
    auto* at = const_cast<char*>(static_cast<const char*>(bytes));
    while (count > 0) {
        int permitted = 0;
        if (!comesTrue([&] { return (permitted = out.CanWrite()) > 0; })) {
            ADD_FAILURE() << "no permission to write";
            return;
        }
        const std::size_t piece =
            std::min(static_cast<std::size_t>(permitted / frameBytes * frameBytes), count);
        out.Write(at, static_cast<int>(piece));
        at += piece;
        count -= piece;
    }
}

void LiveHost::begin() {
    open(rate, channels, 32);
    beginSegment();
}

void LiveHost::beginSegment() {
    const auto index = static_cast<std::int32_t>(segments.size());
    segments.push_back({rampStart + index * segmentRoom, 0});
}

void LiveHost::writeMs(int ms) {
    Segment& segment = segments.back();
    const int frames = ms * rate / 1000;
    const auto samples = ramp(frames, channels, segment.base + segment.frames);
    segment.frames += frames;
    write(samples.data(), samples.size() * sizeof samples[0]);
}

void LiveHost::seek(int ms) {
    out.Flush(ms);
    beginSegment();
}

bool LiveHost::writeUntil(const std::function<bool()>& done) {
    return comesTrue([&] {
        if (done()) return true;
        if (out.CanWrite() > 0) writeMs(20);
        return false;
    });
}

bool LiveHost::reachesEnd(int marginMs) {
    return comesTrue([&] { return out.GetOutputTime() >= out.GetWrittenTime() - marginMs; });
}

} // namespace velorine::test
