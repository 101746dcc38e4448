#include "tests/pulse/Recorder.h"

#include "tests/pulse/Await.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <stdexcept>

namespace velorine::test {

namespace {

std::size_t bytesOf(const SoundDaemon::Sink& sink) {
    const std::size_t sample = sink.format == "u8"      ? 1
                               : sink.format == "s16le" ? 2
                               : sink.format == "s24le" ? 3
                                                        : 4;
    return sample * static_cast<std::size_t>(sink.channels);
}

} // namespace

Recorder::Recorder(const SoundDaemon::Sink& recordedSink)
    : sink(recordedSink), frameBytes(bytesOf(sink)),
      program({"parec", "--raw", "--latency-msec=5", "-d", sink.name + ".monitor",
               "--format=" + sink.format, "--rate=" + std::to_string(sink.rate),
               "--channels=" + std::to_string(sink.channels), "--channel-map=" + sink.channelMap()},
              Child::Output::piped),
      reader([this] { read(); }) {
    if (!comesTrue([this] { return frames() > 0; }))
        throw std::runtime_error("nothing is recorded");
}

Recorder::~Recorder() {
    program.send(SIGKILL);
    reader.join();
}

void Recorder::read() {
    std::array<std::byte, 65536> portion{};
    for (ssize_t got = 0; (got = ::read(program.outputFd(), portion.data(), portion.size())) > 0;) {
        const std::int64_t now = ticksNow();
        const std::lock_guard guard{mutex};
        recorded.insert(recorded.end(), portion.begin(), portion.begin() + got);
        const auto count = static_cast<std::int64_t>(recorded.size() / frameBytes);
        firstTick = std::min(firstTick, now - count * 10'000'000 / sink.rate);
    }
}

std::vector<std::byte> Recorder::bytes() const {
    const std::lock_guard guard{mutex};
    const std::size_t whole = recorded.size() / frameBytes * frameBytes;
    return {recorded.begin(), recorded.begin() + static_cast<std::ptrdiff_t>(whole)};
}

std::int64_t Recorder::frames() const {
    const std::lock_guard guard{mutex};
    return static_cast<std::int64_t>(recorded.size() / frameBytes);
}

std::int64_t Recorder::tickAt(std::int64_t frame) const {
    const std::lock_guard guard{mutex};
    return firstTick + frame * 10'000'000 / sink.rate;
}

std::int64_t Recorder::ticksNow() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
               .count() /
           100;
}

std::vector<HeardFrame> Recorder::heard() const {
    const std::vector<std::byte> all = bytes();
    const std::int64_t first = tickAt(0);
    std::vector<HeardFrame> list(all.size() / frameBytes);
    for (std::size_t i = 0; i < list.size(); ++i) {
        std::memcpy(&list[i].value, all.data() + i * frameBytes, sizeof list[i].value);
        list[i].tick = first + static_cast<std::int64_t>(i) * 10'000'000 / sink.rate;
    }
    return list;
}

} // namespace velorine::test
