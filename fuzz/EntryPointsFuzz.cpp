// Any calls of the record's entry points with any arguments, on the test clock: no call crashes or
// takes longer than it may, and the last one leaves no thread behind.
//
// Input: a byte of settings, a seed of the threads' order, then calls: a byte each that names it,
// and its arguments.

#include "foundation/Thread.h"
#include "host/Module.h"
#include "tests/support/TestHost.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <span>
#include <vector>

namespace {

using velorine::test::TestHost;

void require(bool holds, const char* what, int call) {
    if (holds) return;
    std::fprintf(stderr, "call %d: %s\n", call, what);
    std::abort();
}

/// The fuzzer's bytes as arguments; zeros behind their end.
class Input {
public:
    explicit Input(std::span<const std::uint8_t> all) : bytes(all) {}

    bool empty() const { return bytes.empty(); }
    std::uint32_t byte() {
        if (bytes.empty()) return 0;
        const std::uint8_t next = bytes.front();
        bytes = bytes.subspan(1);
        return next;
    }
    std::uint32_t word() {
        const std::uint32_t low = byte();
        return low | byte() << 8;
    }
    int number() {
        const std::uint32_t low = word();
        return static_cast<int>(low | word() << 16);
    }
    /// One that hosts use, or any.
    template <std::size_t count>
    int usual(const int (&values)[count]) {
        const std::uint32_t choice = byte() % (count + 1);
        return choice < count ? values[choice] : number();
    }

private:
    std::span<const std::uint8_t> bytes;
};

/// Noise that is loud from its first sample on.
std::vector<char>& sound() {
    static std::vector<char> samples = [] {
        std::mt19937 random{1};
        std::vector<char> made(65'536);
        for (char& sample : made)
            sample = static_cast<char>(random());
        return made;
    }();
    return samples;
}

void write(TestHost& host, int bytes) {
    std::vector<char>& samples = sound();
    host.out.Write(samples.data(), std::min(bytes, static_cast<int>(samples.size())));
}

/// One call. @return ms that it may take
int callNext(TestHost& host, Input& input) {
    constexpr int bounded = 3000; // nothing that a host calls waits for a queue to run out
    constexpr int rates[] = {8000, 11025, 22050, 44100, 48000, 96000, 192000};
    constexpr int channelCounts[] = {1, 2, 6, 8};
    constexpr int depths[] = {8, 16, 24, 28, 32, 64};
    Out_Module& out = host.out;
    switch (input.byte() % 20) {
    case 0: {
        const int rate = input.usual(rates);
        const int channels = input.usual(channelCounts);
        out.Open(rate, channels, input.usual(depths), input.number(), input.number());
        return bounded;
    }
    case 1:
        host.answerGoesOn = input.byte() % 2 == 0;
        out.Close();
        return bounded;
    case 2:
        out.Pause(static_cast<int>(input.byte() % 2));
        return bounded;
    case 3:
        out.Flush(input.number());
        return bounded;
    case 4:
        out.SetVolume(input.number());
        return bounded;
    case 5:
        out.SetPan(input.number());
        return bounded;
    case 6:
        require(out.IsPlaying() == 0, "it says that it plays", 0);
        return bounded;
    case 7:
        host.sound.refusals = static_cast<int>(input.byte() % 4);
        return bounded;
    case 8:
        host.sound.lostLocks = static_cast<int>(input.byte() % 4);
        return bounded;
    case 9:
        host.sound.playFails = input.byte() % 2 != 0;
        return bounded;
    case 10:
        out.Write(nullptr, input.number());
        return bounded;
    case 11:
        out.Write(sound().data(), -static_cast<int>(input.byte()));
        return bounded;
    case 12:
        out.Init();
        return bounded;
    case 13:
        out.Quit();
        return 6000;
    case 14:
        static_cast<void>(velorine::moduleStatus());
        out.GetWrittenTime();
        return bounded;
    case 15: {
        const auto ms = static_cast<int>(input.word() % 8000);
        host.advance(ms);
        return ms + 1;
    }
    case 16:
        host.advance(static_cast<int>(input.byte()));
        return 256;
    case 17:
        write(host, static_cast<int>(input.word()));
        return bounded;
    default:
        for (std::uint32_t i = input.byte() % 16; i > 0 && out.CanWrite() > 0; --i)
            write(host, 9216);
        out.GetOutputTime();
        return 16 * bounded;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr int mostCalls = 200;
    Input input{{data, size}};
    TestHost::Setup setup;
    const std::uint32_t settings = input.byte();
    setup.beep = (settings & 1) != 0;
    setup.fadeOnSeek = (settings & 2) == 0;
    setup.fadeOnStop = (settings & 4) == 0;
    setup.withSound = (settings & 8) == 0;
    setup.kestrix = (settings & 16) != 0;
    setup.seed = input.byte();
    {
        TestHost host{setup};
        const auto checkTime = [&](std::int64_t since, int ms, int call) {
            const std::int64_t tookMs = (host.clock.ticks() - since) / 10'000;
            if (tookMs > ms) std::fprintf(stderr, "took %d ms\n", static_cast<int>(tookMs));
            require(tookMs <= ms, "it took too long", call);
        };
        for (int call = 0; call < mostCalls && !input.empty(); ++call) {
            const std::int64_t before = host.clock.ticks();
            const int ms = callNext(host, input);
            checkTime(before, ms, call);
        }
        const std::int64_t before = host.clock.ticks();
        host.out.Quit();
        checkTime(before, 6000, mostCalls);
        require(velorine::Thread::registeredThreads() == 0, "a thread is left", mostCalls);
    }
    return 0;
}
